#include <gtest/gtest.h>

#include <cstdint>

#include "tarn/runtime/context.h"
#include "tarn/runtime/device_cpu.h"
#include "test_util.h"

namespace tarn {
namespace {

using runtime::TensorShape;

TEST(MemoryPool, AlignedPoolReportsForeignPointersAndEarlyDestruction) {
  testing::LogCapture log;
  {
    runtime::AlignedPool pool(64);
    void* p = pool.Malloc(100);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % 64, 0u);
    EXPECT_EQ(pool.BytesInUse(), 100u);
    int local = 0;
    pool.Free(&local);
    EXPECT_TRUE(log.Contains(
        utility::FormatString("pointer(0x%ld) not in alignment memory pool !",
                              static_cast<long>(reinterpret_cast<std::uintptr_t>(&local))),
        utility::kLogError));
    EXPECT_FALSE(log.Contains("Destory this pool too early!!"));
    pool.Free(p);
    EXPECT_EQ(pool.BytesInUse(), 0u);
    EXPECT_EQ(pool.PeakBytesInUse(), 100u);
  }
  EXPECT_FALSE(log.Contains("Destory this pool too early!!"));
  void* leaked = nullptr;
  {
    runtime::AlignedPool pool(32);
    leaked = pool.Malloc(8);
  }
  EXPECT_TRUE(log.Contains("Destory this pool too early!!", utility::kLogError));
  std::free(leaked);
}

TEST(MemoryPool, AlignUpPoolRoundsAndReusesBlocks) {
  runtime::AlignUpPool pool(48);  // not a power of two: 64 is used
  void* a = pool.Malloc(10);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(a) % 64, 0u);
  EXPECT_EQ(pool.BytesInUse(), 64u);
  pool.Free(a);
  EXPECT_EQ(pool.CachedBytes(), 64u);
  void* b = pool.Malloc(64);
  EXPECT_EQ(a, b) << "a freed block of the same rounded size is reused";
  void* c = pool.Malloc(65);
  EXPECT_NE(c, b);
  pool.Free(b);
  pool.Free(c);
  pool.Trim();
  EXPECT_EQ(pool.CachedBytes(), 0u);
  EXPECT_THROW(pool.Malloc(SIZE_MAX - 8), std::bad_alloc);
}

TEST(MemoryPool, ByteLimitRefusesRequestsThatWouldPassIt) {
  runtime::AlignUpPool pool(64);
  EXPECT_EQ(pool.byte_limit(), SIZE_MAX);
  pool.SetByteLimit(256);
  void* a = pool.Malloc(100);  // 128 after rounding
  void* b = pool.Malloc(128);
  EXPECT_EQ(pool.BytesInUse(), 256u);
  EXPECT_THROW(pool.Malloc(1), std::runtime_error) << "exactly at the limit, one byte more is refused";
  EXPECT_EQ(pool.BytesInUse(), 256u) << "a refusal reserves nothing";
  pool.Free(b);
  EXPECT_THROW(pool.Malloc(129), std::runtime_error) << "a cached block is not reused past the limit either";
  void* c = pool.Malloc(128);
  EXPECT_EQ(c, b);
  pool.Free(a);
  pool.Free(c);
  runtime::AlignedPool plain(16);
  plain.SetByteLimit(32);
  EXPECT_THROW(plain.Malloc(SIZE_MAX), std::runtime_error) << "no overflow in the sum";
  void* d = plain.Malloc(32);
  plain.Free(d);
  plain.SetByteLimit(SIZE_MAX);
  EXPECT_THROW(plain.Malloc(SIZE_MAX - 64), std::bad_alloc);
  EXPECT_EQ(plain.BytesInUse(), 0u) << "a failed allocation gives back its reservation";
}

TEST(MemoryPool, CacheIsBounded) {
  runtime::AlignUpPool pool(64, 128);
  void* a = pool.Malloc(128);
  void* b = pool.Malloc(128);
  pool.Free(a);
  pool.Free(b);
  EXPECT_EQ(pool.CachedBytes(), 128u);
}

class DeviceTest : public ::testing::Test {
 protected:
  std::shared_ptr<runtime::AlignUpPool> pool = std::make_shared<runtime::AlignUpPool>(32);
  std::shared_ptr<runtime::AlignUpPool> dynamic = std::make_shared<runtime::AlignUpPool>(32);
  std::shared_ptr<runtime::DeviceCPU> device = runtime::CreateDeviceCPU(runtime::DetectCPUDevice(), pool, nullptr, dynamic);
};

TEST_F(DeviceTest, TensorsReturnTheirBlockToTheirPool) {
  {
    auto fixed = device->CreateF32CHWMainMemory(2, 3, 4);
    auto flexible = device->CreateF32FlexiableMainMemory({5, 7});
    EXPECT_EQ(pool->BytesInUse(), 96u);
    EXPECT_EQ(dynamic->BytesInUse(), 160u);
    EXPECT_EQ(flexible->shape.layout, TensorShape::FLEXIABLE);
    EXPECT_EQ(fixed->device, device);
  }
  EXPECT_EQ(pool->BytesInUse(), 0u);
  EXPECT_EQ(dynamic->BytesInUse(), 0u);
}

TEST_F(DeviceTest, DeletersReachThePools) {
  auto t = device->CreateF32CMainMemory(4);
  void* raw = pool->Malloc(16);
  t->GetDeleter()(raw);
  void* raw2 = dynamic->Malloc(16);
  t->GetDynamicDeleter()(raw2);
  EXPECT_EQ(pool->BytesInUse(), 32u);  // only the tensor's own block, rounded to 32, remains
  EXPECT_EQ(dynamic->BytesInUse(), 0u);
}

TEST_F(DeviceTest, ZeroFactoriesZeroAndShapesAreRight) {
  struct Case {
    std::shared_ptr<runtime::TensorCPU> t;
    std::vector<unsigned> dims;
    TensorShape::DataType type;
  };
  // Dirty the pool first so that zeroing is observable.
  {
    auto dirty = device->CreateF32CHWMainMemory(2, 3, 4);
    std::memset(dirty->Data(), 0xAB, dirty->shape.Bytes());
  }
  const Case cases[] = {
      {device->CreateZeroF32CMainMem(24), {24}, TensorShape::FLOAT32},
      {device->CreateZeroF32CHWMainMem(2, 3, 4), {2, 3, 4}, TensorShape::FLOAT32},
      {device->CreateZeroF32FlexiableMainMem({6, 4}), {6, 4}, TensorShape::FLOAT32},
      {device->CreateZeroF16CMainMem(48), {48}, TensorShape::FLOAT16},
      {device->CreateZeroF16CHWMainMem(4, 3, 4), {4, 3, 4}, TensorShape::FLOAT16},
      {device->CreateZeroF16FlexiableMainMem({2, 24}), {2, 24}, TensorShape::FLOAT16},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.t->shape.dims, c.dims);
    EXPECT_EQ(c.t->shape.data_type, c.type);
    EXPECT_EQ(c.t->shape.location, TensorShape::MainMemory);
    const auto* bytes = c.t->DataAs<unsigned char>();
    for (size_t i = 0; i < c.t->shape.Bytes(); ++i) ASSERT_EQ(bytes[i], 0) << i;
  }
}

TEST_F(DeviceTest, CopyAndExternalFactories) {
  float values[6] = {1, 2, 3, 4, 5, 6};
  auto copied = device->CreateTensor(runtime::MakeShape({2, 3}), values);
  auto wrapped = device->CreateF32FlexiableMainMemoryExternal(values, {6});
  values[0] = 9;
  EXPECT_EQ(copied->DataAs<float>()[0], 1);
  EXPECT_EQ(wrapped->DataAs<float>()[0], 9);
  EXPECT_EQ(wrapped->Data(), values);
  EXPECT_EQ(device->CreateF32CHWMainMemoryExternal(values, 1, 2, 3)->shape.dims, (std::vector<unsigned>{1, 2, 3}));
  EXPECT_EQ(device->CreateF32CMainMemoryExternal(values, 6)->Data(), values);
}

TEST_F(DeviceTest, PixelBufferFactories) {
  unsigned char frame[4 * 6 * 4] = {};
  frame[5] = 77;
  struct Case {
    std::shared_ptr<runtime::TensorCPU> t;
    std::vector<unsigned> dims;
    TensorShape::Layout layout;
  };
  const Case cases[] = {
      {device->CreateRGB888Tensor(4, 6), {4, 6, 3}, TensorShape::HWC},
      {device->CreateBGR888Tensor(4, 6), {4, 6, 3}, TensorShape::HWC},
      {device->CreateRGBA8888Tensor(4, 6), {4, 6, 4}, TensorShape::HWC},
      {device->CreateBGRA8888Tensor(4, 6), {4, 6, 4}, TensorShape::HWC},
      {device->CreateGray8Tensor(4, 6), {4, 6, 1}, TensorShape::HWC},
      {device->CreateYPlane8BitTensor(4, 6), {4, 6, 1}, TensorShape::HWC},
      {device->CreateUVPlane8BitTensor(2, 3), {2, 3, 2}, TensorShape::HWC},
      {device->CreateYUV420Tensor(4, 6), {6, 6, 1}, TensorShape::HWC},
      {device->CreateRGBUInt8CHWTensor(4, 6), {3, 4, 6}, TensorShape::CHW},
      {device->CreateBGRUInt8CHWTensor(4, 6), {3, 4, 6}, TensorShape::CHW},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.t->shape.dims, c.dims);
    EXPECT_EQ(c.t->shape.layout, c.layout);
    EXPECT_EQ(c.t->shape.data_type, TensorShape::UINT8);
  }
  auto copy = device->CreateRGBA8888Tensor(4, 6, frame);
  auto view = device->CreateRGBA8888Tensor(4, 6, frame, true);
  EXPECT_NE(copy->Data(), static_cast<void*>(frame));
  EXPECT_EQ(copy->DataAs<unsigned char>()[5], 77);
  EXPECT_EQ(view->Data(), static_cast<void*>(frame));
}

TEST(CPUDetection, AgreesWithTheCompilerBuiltins) {
  const runtime::CPUDeviceInfo info = runtime::DetectCPUDevice();
  __builtin_cpu_init();
  EXPECT_EQ(info.sse41, static_cast<bool>(__builtin_cpu_supports("sse4.1")));
  EXPECT_EQ(info.avx2, static_cast<bool>(__builtin_cpu_supports("avx2")));
  EXPECT_EQ(info.fma, static_cast<bool>(__builtin_cpu_supports("fma")));
  EXPECT_EQ(info.avx512f, static_cast<bool>(__builtin_cpu_supports("avx512f")));
  EXPECT_FALSE(info.vendor.empty());
  EXPECT_GE(info.logical_cores, 1u);
  EXPECT_NE(info.ToString().find(info.vendor.empty() ? "" : "logical cores"), std::string::npos);
}

TEST(Context, HoldsTheSixPointersInOrder) {
  auto device = runtime::CreateDeviceCPU(runtime::DetectCPUDevice(), nullptr, nullptr, nullptr);
  auto ctx = runtime::CreateContext(device, nullptr, nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(ctx->cpu, device);
  EXPECT_EQ(ctx->opengl, nullptr);
  EXPECT_EQ(ctx->profiler, nullptr);
  EXPECT_NE(device->pool(), nullptr) << "a device without pools gets its own";
  EXPECT_EQ(device->dynamic_pool(), device->pool());
}

}  // namespace
}  // namespace tarn
