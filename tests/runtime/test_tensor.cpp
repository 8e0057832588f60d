#include <gtest/gtest.h>

#include <numeric>
#include <sstream>

#include "tarn/runtime/device_cpu.h"
#include "tarn/runtime/tensor.h"
#include "test_util.h"

namespace tarn {
namespace {

using runtime::TensorShape;

std::shared_ptr<runtime::DeviceCPU> MakeDevice() {
  auto pool = std::make_shared<runtime::AlignUpPool>(64);
  return runtime::CreateDeviceCPU(runtime::DetectCPUDevice(), pool, nullptr, pool);
}

TEST(TensorShape, ElementSizeTable) {
  const std::pair<TensorShape::DataType, unsigned> table[] = {
      {TensorShape::FLOAT32, 4}, {TensorShape::FLOAT16, 2}, {TensorShape::INT32, 4}, {TensorShape::INT16, 2},
      {TensorShape::INT8, 1},    {TensorShape::UINT32, 4},  {TensorShape::UINT16, 2}, {TensorShape::UINT8, 1}};
  for (auto& entry : table) {
    TensorShape s({1}, entry.first, TensorShape::CHW, TensorShape::MainMemory);
    EXPECT_EQ(s.ElementSize(), entry.second) << entry.first;
  }
}

TEST(TensorShape, UnknownDataTypeIsAProgrammingError) {
  TensorShape s({1}, static_cast<TensorShape::DataType>(8), TensorShape::CHW, TensorShape::MainMemory);
  testing::LogCapture log;
  const std::string msg = testing::ThrownMessage([&] { s.ElementSize(); });
  EXPECT_NE(msg.find("false && \"Invalid type\""), std::string::npos) << msg;
  EXPECT_NE(msg.find("uint32_t tarn::runtime::TensorShape::ElementSize() const"), std::string::npos) << msg;
  EXPECT_TRUE(log.Contains("Invalid type", utility::kLogError));
}

TEST(TensorShape, PrintsNames) {
  std::ostringstream os;
  os << TensorShape({1, 2, 3}, TensorShape::FLOAT32, TensorShape::C4HW4, TensorShape::MainMemory);
  EXPECT_EQ(os.str(),
            "TensorShape: {\n\tShape: [1, 2, 3]\n\tLocation:MainMemory\n\tDataType:FLOAT32\n\tLayout:C4HW4\n}");
  std::ostringstream unknown;
  unknown << TensorShape({}, static_cast<TensorShape::DataType>(99), static_cast<TensorShape::Layout>(4),
                         static_cast<TensorShape::Location>(5));
  EXPECT_EQ(unknown.str(), "TensorShape: {\n\tShape: []\n\tLocation:\n\tDataType:\n\tLayout:\n}");
  EXPECT_EQ(runtime::LayoutName(16), "GN8C8HW8n8c");
  EXPECT_EQ(runtime::LayoutName(23), "FLEXIABLE");
  EXPECT_EQ(runtime::LocationName(0x42002), "MetalTempImage");
}

TEST(TensorShape, CountsSaturateInsteadOfWrapping) {
  TensorShape s({65536, 65536, 65536, 65536, 65536}, TensorShape::FLOAT32, TensorShape::CHW,
                TensorShape::MainMemory);
  EXPECT_EQ(s.ElementCount(), SIZE_MAX);
  EXPECT_EQ(s.Bytes(), SIZE_MAX);
  EXPECT_EQ(TensorShape().ElementCount(), 1u);
  EXPECT_THROW(MakeDevice()->CreateTensor(s), std::bad_alloc);
}

TEST(TensorShape, CopyKeepsEveryField) {
  TensorShape a({5, 6}, TensorShape::INT16, TensorShape::NHWC, TensorShape::MetalBuffer, TensorShape::Extra(11));
  TensorShape b(a);
  EXPECT_EQ(b, a);
  TensorShape c;
  c = a;
  EXPECT_EQ(c.extra.step_size, 11);
  EXPECT_EQ(c.location, TensorShape::MetalBuffer);
}

class LocateTest : public ::testing::TestWithParam<int> {};

TEST_P(LocateTest, RowMajorOffsetsTimesElementSize) {
  const int rank = GetParam();
  std::vector<unsigned> dims;
  for (int i = 0; i < rank; ++i) dims.push_back(2 + i);
  auto device = MakeDevice();
  auto t = device->CreateTensor(TensorShape(dims, TensorShape::INT16, TensorShape::FLEXIABLE, TensorShape::MainMemory));
  std::vector<unsigned> idx(rank);
  for (int i = 0; i < rank; ++i) idx[i] = dims[i] - 1 - (i % 2);
  size_t offset = 0;
  for (int i = 0; i < rank; ++i) offset = offset * dims[i] + idx[i];
  void* p = nullptr;
  switch (rank) {
    case 1: p = t->Locate1D(idx[0]); break;
    case 2: p = t->Locate2D(idx[0], idx[1]); break;
    case 3: p = t->Locate3D(idx[0], idx[1], idx[2]); break;
    case 4: p = t->Locate4D(idx[0], idx[1], idx[2], idx[3]); break;
    case 5: p = t->Locate5D(idx[0], idx[1], idx[2], idx[3], idx[4]); break;
    case 6: p = t->Locate6D(idx[0], idx[1], idx[2], idx[3], idx[4], idx[5]); break;
    case 7: p = t->Locate7D(idx[0], idx[1], idx[2], idx[3], idx[4], idx[5], idx[6]); break;
  }
  EXPECT_EQ(static_cast<char*>(p) - static_cast<char*>(t->Data()), static_cast<long>(offset * 2));
  // A call of another rank asserts with its own expression text.
  const std::string msg = testing::ThrownMessage([&] {
    if (rank == 1) {
      t->Locate2D(0, 0);
    } else {
      t->Locate1D(0);
    }
  });
  EXPECT_NE(msg.find(rank == 1 ? "2 == shape.dims.size()" : "1 == shape.dims.size()"), std::string::npos) << msg;
}

INSTANTIATE_TEST_SUITE_P(Ranks, LocateTest, ::testing::Range(1, 8));

TEST(TensorCPU, RankZeroCannotBeLocated) {
  auto t = MakeDevice()->CreateTensor(TensorShape({}, TensorShape::FLOAT32, TensorShape::CHW, TensorShape::MainMemory));
  EXPECT_NE(testing::ThrownMessage([&] { t->Locate1D(0); }).find("1 == shape.dims.size()"), std::string::npos);
}

TEST(TensorCPU, ReshapeKeepsStorageAndInfersOneEntry) {
  auto t = MakeDevice()->CreateF32CHWMainMemory(2, 3, 4);
  void* data = t->Data();
  t->Reshape({4, -1});
  EXPECT_EQ(t->shape.dims, (std::vector<unsigned>{4, 6}));
  EXPECT_EQ(t->Data(), data);
  t->Reshape({24});
  EXPECT_EQ(t->shape.dims, (std::vector<unsigned>{24}));
  EXPECT_NE(testing::ThrownMessage([&] { t->Reshape({5, -1}); }), "");
  EXPECT_NE(testing::ThrownMessage([&] { t->Reshape({-1, -1}); }), "");
  EXPECT_NE(testing::ThrownMessage([&] { t->Reshape({-2, -12}); }), "");
  EXPECT_NE(testing::ThrownMessage([&] { t->Reshape({25}); }), "");
  EXPECT_EQ(t->shape.dims, (std::vector<unsigned>{24}));
}

struct PermuteCase {
  std::vector<unsigned> dims;
  std::vector<unsigned> axes;
  TensorShape::DataType type;
};

class PermuteTest : public ::testing::TestWithParam<PermuteCase> {};

TEST_P(PermuteTest, MatchesIndexArithmetic) {
  const PermuteCase c = GetParam();
  auto t = MakeDevice()->CreateTensor(TensorShape(c.dims, c.type, TensorShape::FLEXIABLE, TensorShape::MainMemory));
  const size_t n = t->shape.ElementCount(), es = t->shape.ElementSize();
  std::vector<unsigned char> before(n * es);
  for (size_t i = 0; i < before.size(); ++i) before[i] = static_cast<unsigned char>(i * 37 + 11);
  if (!before.empty()) std::memcpy(t->Data(), before.data(), before.size());
  t->Permute(c.axes);
  const size_t rank = c.dims.size();
  for (size_t i = 0; i < rank; ++i) EXPECT_EQ(t->shape.dims[i], c.dims[c.axes[i]]);
  // Walk every output index and compare with the source element it names.
  std::vector<unsigned> out_idx(rank, 0);
  const auto* after = static_cast<const unsigned char*>(t->Data());
  for (size_t flat = 0; flat < n; ++flat) {
    size_t rem = flat;
    for (size_t i = rank; i-- > 0;) {
      out_idx[i] = rem % t->shape.dims[i];
      rem /= t->shape.dims[i];
    }
    std::vector<unsigned> src_idx(rank);
    for (size_t i = 0; i < rank; ++i) src_idx[c.axes[i]] = out_idx[i];
    size_t src = 0;
    for (size_t i = 0; i < rank; ++i) src = src * c.dims[i] + src_idx[i];
    ASSERT_EQ(std::memcmp(after + flat * es, before.data() + src * es, es), 0) << flat;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, PermuteTest,
    ::testing::Values(PermuteCase{{2, 3}, {1, 0}, TensorShape::FLOAT32},
                      PermuteCase{{2, 3, 4}, {2, 0, 1}, TensorShape::FLOAT32},
                      PermuteCase{{3, 1, 5, 2}, {3, 1, 0, 2}, TensorShape::UINT8},
                      PermuteCase{{2, 2, 3, 2, 2}, {4, 3, 2, 1, 0}, TensorShape::FLOAT16},
                      PermuteCase{{7}, {0}, TensorShape::INT32}, PermuteCase{{4, 0, 2}, {2, 1, 0}, TensorShape::INT8}), TRN_INDEX_NAMES);

TEST(TensorCPU, TranspositionMessages) {
  auto device = MakeDevice();
  auto t = device->CreateF32CHWMainMemory(1, 2, 3);
  EXPECT_EQ(testing::ThrownMessage([&] { t->Permute({0, 1}); }), "dimensions of shape must be equal to tranpose axes's.");
  EXPECT_NE(testing::ThrownMessage([&] { t->Permute({0, 0, 1}); }), "");
  EXPECT_EQ(testing::ThrownMessage([&] { runtime::TransposeTensor(nullptr, t, {0, 1, 2}); }),
            "Input shared pointer is null.");
  EXPECT_EQ(testing::ThrownMessage([&] { runtime::TransposeTensor(t, nullptr, {0, 1, 2}); }),
            "Output shared pointer is null.");
  EXPECT_EQ(testing::ThrownMessage([&] {
              runtime::TransposeRaw(t->Data(), t->Data(), {1, 2, 3}, {0, 1, 2}, 0);
            }),
            "bytes per element must be >= 1.");
}

}  // namespace
}  // namespace tarn
