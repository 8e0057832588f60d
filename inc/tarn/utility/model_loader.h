// The library's outermost entry: registering the kernels, creating the
// context, loading model packages and building their nets.
//
// Threads: fill the registries once at start-up; afterwards they are only
// read (by CreateNet) and may be shared by threads that load models, as long
// as nobody registers into them any more. Each net runs on one thread at a
// time (see net.h). The SGEMM kernels set OpenBLAS to one thread on their
// first call; that setting belongs to the whole process, so an application
// that uses OpenBLAS itself shares it.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "tarn/runtime/context.h"
#include "tarn/runtime/inference_config.h"
#include "tarn/runtime/kernel.h"
#include "tarn/runtime/model_info.h"
#include "tarn/runtime/net.h"

// Core version of this build: 1.0. Always returns 0.
int TRN_Get_Core_Version(unsigned int& major, unsigned int& minor);

namespace tarn {
namespace utility {

// The version block of a model package.
struct _TRNModelVerInfo {
  std::string sdk_type;
  std::uint16_t core_major_ver = 0;
  std::uint16_t core_minor_ver = 0;
  std::uint16_t sdk_major_ver = 0;
  std::uint16_t sdk_minor_ver = 0;
};

// Everything a caller needs to run one network of a package. The registries
// are the caller's and must outlive the package.
struct _NetworkPackage {
  _NetworkPackage(runtime::KernelRegistry& kernels, runtime::InferenceParamRegistry& params,
                  std::shared_ptr<runtime::Context> ctx)
      : kernel_registry(kernels), param_registry(params), context(std::move(ctx)) {}

  runtime::KernelRegistry& kernel_registry;
  runtime::InferenceParamRegistry& param_registry;
  std::shared_ptr<runtime::Context> context;
  std::shared_ptr<runtime::Net> net;  // null when the net could not be built
  runtime::NetExtraInfo extra_info;
  // One entry per model input, keyed by layer index; the tensors are the caller's to set.
  std::unordered_map<std::uint32_t, std::shared_ptr<runtime::Tensor>> input_tensors;
  std::unordered_map<std::uint32_t, runtime::TensorShape> input_shapes;
  std::vector<std::uint32_t> output_indices;
};

// Fills both registries: cross-platform, fallback and SSE kernels, the
// parameter classes, AVX kernels, SGEMM kernels; the first registration of a
// name wins.
void init_register_operators(runtime::KernelRegistry& kernels, runtime::InferenceParamRegistry& params);

// Replaces `ctx` with a new context: two align-up pools of `alignment`, the
// processor description and the CPU device.
void create_context(std::shared_ptr<runtime::Context>& ctx, unsigned int alignment);

// 0 when a package of version block `info` may be used by this build and the
// caller's SDK, -2 (with a level-16 log line) otherwise.
int check_version(std::string sdk_type, unsigned short sdk_major, unsigned short sdk_minor, _TRNModelVerInfo info);

// Reads a ".json" or ".trnmodel" package, checks its versions and builds one
// net per network into `nets` (an existing name is kept). 0 on success, -2 on
// an unreadable, malformed or refused package; the message is logged.
int load_model(std::string path, std::map<std::string, std::shared_ptr<_NetworkPackage>>& nets,
               std::shared_ptr<runtime::Context>& ctx, runtime::KernelRegistry& kernels,
               runtime::InferenceParamRegistry& params, std::string sdk_type, unsigned short sdk_major,
               unsigned short sdk_minor);

// Builds one network into `pkg` with the configuration of `platform` ("x86":
// the "cpu_sse" member; "metal": "gpu_metal" when named; others: none).
void Load_Single_Net(std::shared_ptr<_NetworkPackage>& pkg, const std::shared_ptr<runtime::TRModelInfo>& model,
                     const std::shared_ptr<runtime::TRModelMultiBackendCfgs>& cfgs, const char* platform);

}  // namespace utility
}  // namespace tarn
