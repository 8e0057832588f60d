// Links the installed trn_core: builds a tensor and round-trips its shape through JSON.
#include <iostream>

#include "tarn/runtime/device_cpu.h"
#include "tarn/runtime/json_binding.h"

int main() {
  using namespace tarn::runtime;
  auto pool = std::make_shared<AlignUpPool>(64);
  auto device = CreateDeviceCPU(DetectCPUDevice(), pool, nullptr, pool);
  auto tensor = device->CreateZeroF32CHWMainMem(2, 2, 2);
  JSONDocument doc;
  const std::string text = SerializeJSONValue(ToJSONValue(&tensor->shape, doc.GetAllocator()));
  TensorShape back;
  back.FromJsonString(text.c_str());
  std::cout << text << "\n" << (back == tensor->shape ? "example: ok" : "example: MISMATCH") << "\n";
  return back == tensor->shape ? 0 : 1;
}
