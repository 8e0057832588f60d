// Hostile model packages all the way through: the bytes are read as a package
// (JSON text or the binary format, by the first byte), every network is built
// with the library's kernels and run on a few input tensors. Refusals are
// fine; a crash, hang or leak is not.
#include <cstdint>
#include <cstdio>
#include <map>
#include <stdexcept>
#include <string>

#include "tarn/runtime/binary_stream.h"
#include "tarn/runtime/memory_pool.h"
#include "tarn/utility/log.h"
#include "tarn/utility/model_loader.h"

namespace {

using namespace tarn;

struct World {
  runtime::KernelRegistry kernels;
  runtime::InferenceParamRegistry params;
  std::shared_ptr<runtime::Context> ctx;
  World() {
    utility::init_register_operators(kernels, params);
    utility::create_context(ctx, 64);
    // A hostile layer can ask for an output or column buffer of gigabytes;
    // the pool's limit turns that into a failed forward pass.
    if (auto* pool = dynamic_cast<runtime::AlignedPool*>(ctx->cpu->pool().get())) pool->SetByteLimit(size_t(512) << 20);
    if (auto* pool = dynamic_cast<runtime::AlignedPool*>(ctx->cpu->dynamic_pool().get()))
      pool->SetByteLimit(size_t(512) << 20);
  }
};

World& Shared() {
  static World* world = new World();
  return *world;
}

bool ReadPackage(const uint8_t* data, size_t size, runtime::TRNModel& pkg) {
  if (size < 1) return false;
  const bool json = data[0] % 2 == 0;
  ++data;
  --size;
  try {
    if (json) {
      const std::string text(reinterpret_cast<const char*>(data), size);
      return pkg.FromJsonString(text.c_str());
    }
    if (size == 0) return false;
    FILE* stream = fmemopen(const_cast<uint8_t*>(data), size, "rb");
    if (!stream) return false;
    try {
      pkg.VisitAttr(std::make_shared<runtime::FILEReader>(stream, 0));
    } catch (...) {
      std::fclose(stream);
      throw;
    }
    std::fclose(stream);
    return true;
  } catch (const std::runtime_error&) {
    return false;
  }
}

// Float tensors of a few shapes and layouts the kernels may meet.
std::vector<std::shared_ptr<runtime::Tensor>> Inputs(runtime::DeviceCPU& device) {
  std::vector<std::shared_ptr<runtime::Tensor>> inputs;
  const std::vector<std::vector<unsigned>> shapes = {{3, 8, 8}, {8, 5, 7}, {16}, {2, 6, 6, 4}, {1, 4, 4, 8}};
  for (size_t i = 0; i < shapes.size(); ++i) {
    runtime::TensorShape shape = runtime::MakeShape(shapes[i]);
    if (shapes[i].size() == 4) shape.layout = shapes[i][3] == 4 ? runtime::TensorShape::C4HW4 : runtime::TensorShape::C8HW8;
    auto t = device.CreateTensor(shape);
    float* p = t->DataAs<float>();
    for (size_t k = 0; k < shape.ElementCount(); ++k) p[k] = static_cast<float>((k * 37 + i) % 17) * 0.25f - 2.0f;
    inputs.push_back(t);
  }
  return inputs;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  utility::SetLogLevel(1000);
  Shared();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  World& world = Shared();
  runtime::TRNModel pkg;
  if (!ReadPackage(data, size, pkg)) return 0;
  const auto inputs = Inputs(*world.ctx->cpu);
  for (const std::string& name : pkg.model_arr.squential_ids) {
    auto model = pkg.model_arr.models[name];
    auto cfgs = pkg.config_arr.configs[name];
    if (!model || !cfgs) continue;
    auto package = std::make_shared<utility::_NetworkPackage>(world.kernels, world.params, world.ctx);
    utility::Load_Single_Net(package, model, cfgs, "x86");
    if (!package->net) continue;
    // The package's own output list, plus every layer once.
    std::vector<std::uint32_t> outputs = package->output_indices;
    for (std::uint32_t i = 0; i < package->net->layers().size(); ++i) outputs.push_back(i);
    for (const auto& tensor : inputs) {
      runtime::TensorMap feed;
      for (const auto& in : package->input_tensors) feed[in.first] = tensor;
      package->net->Forward(feed, outputs, world.ctx);
    }
  }
  return 0;
}
