// The bundle of devices every kernel receives.
#pragma once

#include <memory>

#include "tarn/runtime/device_cpu.h"

namespace tarn {
namespace runtime {

// Devices of other back ends: declared so that the context has the same shape
// on every platform; this library never creates them.
class DeviceOpenGL;
class DeviceMetalCompute;
class DeviceVulkan;
class DeviceCUDAStream;
class Profiler;

struct Context {
  std::shared_ptr<DeviceCPU> cpu;
  std::shared_ptr<DeviceOpenGL> opengl;
  std::shared_ptr<DeviceMetalCompute> metal;
  std::shared_ptr<DeviceVulkan> vulkan;
  std::shared_ptr<DeviceCUDAStream> cuda;
  // When set, Net::Forward records per-layer times in it.
  std::shared_ptr<Profiler> profiler;
};

using ContextPtr = std::shared_ptr<Context>;

std::shared_ptr<Context> CreateContext(std::shared_ptr<DeviceCPU> cpu, std::shared_ptr<DeviceOpenGL> opengl,
                                       std::shared_ptr<DeviceMetalCompute> metal, std::shared_ptr<DeviceVulkan> vulkan,
                                       std::shared_ptr<DeviceCUDAStream> cuda, std::shared_ptr<Profiler> profiler);

}  // namespace runtime
}  // namespace tarn
