// Makes a tensor and a record, writes the record in both formats and reads it back.
#include <cstdio>
#include <iostream>
#include <string>

#include "tarn/runtime/device_cpu.h"
#include "tarn/runtime/tensor.h"
#include "tarn/utility/log.h"

using namespace tarn::runtime;

int main(int argc, char** argv) {
  const std::string dir = argc > 1 ? argv[1] : ".";
  const CPUDeviceInfo cpu = DetectCPUDevice();
  std::cout << "CPU: " << cpu.ToString() << "\n";

  auto pool = std::make_shared<AlignUpPool>(64);
  auto device = CreateDeviceCPU(cpu, pool, nullptr, pool);
  auto tensor = device->CreateZeroF32CHWMainMem(3, 4, 5);
  *static_cast<float*>(tensor->Locate3D(1, 2, 3)) = 42.0f;
  std::cout << tensor->shape << "\n";
  std::cout << "element (1,2,3) = " << *static_cast<float*>(tensor->Locate3D(1, 2, 3)) << "\n";

  TensorShape record = tensor->shape;
  record.extra.step_size = 7;
  const std::string json_path = dir + "/trn_demo_shape.json";
  const std::string bin_path = dir + "/trn_demo_shape.trmod";
  try {
    if (!record.ToFile(json_path.c_str(), "json") || !record.ToFile(bin_path.c_str(), "bin")) return 1;
    TensorShape from_json, from_bin;
    from_json.FromFile(json_path.c_str());
    from_bin.FromFile(bin_path.c_str());
    std::cout << "JSON round trip: " << (from_json == record ? "equal" : "DIFFERENT") << "\n";
    std::cout << "binary round trip: " << (from_bin == record ? "equal" : "DIFFERENT") << "\n";
    std::remove(json_path.c_str());
    std::remove(bin_path.c_str());
    return (from_json == record && from_bin == record) ? 0 : 1;
  } catch (const std::exception& e) {
    std::cerr << "error: " << e.what() << "\n";
    return 1;
  }
}
