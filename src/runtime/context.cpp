#include "tarn/runtime/context.h"

namespace tarn {
namespace runtime {

std::shared_ptr<Context> CreateContext(std::shared_ptr<DeviceCPU> cpu, std::shared_ptr<DeviceOpenGL> opengl,
                                       std::shared_ptr<DeviceMetalCompute> metal, std::shared_ptr<DeviceVulkan> vulkan,
                                       std::shared_ptr<DeviceCUDAStream> cuda, std::shared_ptr<Profiler> profiler) {
  auto ctx = std::make_shared<Context>();
  ctx->cpu = std::move(cpu);
  ctx->opengl = std::move(opengl);
  ctx->metal = std::move(metal);
  ctx->vulkan = std::move(vulkan);
  ctx->cuda = std::move(cuda);
  ctx->profiler = std::move(profiler);
  return ctx;
}

}  // namespace runtime
}  // namespace tarn
