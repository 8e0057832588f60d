// Converts hostile bytes as an ONNX model: reading (protobuf, the ONNX
// checker and shape inference), the graph passes, the mapping onto layer
// records and the kernel planning, which creates and configures every
// candidate kernel with the records it made. Any refusal is fine; a crash, a
// hang, a leak or an escaping exception is not. A model that converts must
// survive writing its package and reading it back.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "convert/converter.h"
#include "tarn/runtime/json_binding.h"
#include "tarn/runtime/memory_pool.h"
#include "tarn/utility/log.h"

namespace {

tarn::convert::Planner& SharedPlanner() {
  static auto* planner = new tarn::convert::Planner();
  return *planner;
}

// The pools keep freed blocks for reuse; hostile models ask for ever new
// sizes, so the cache is handed back after every input.
void TrimPools() {
  const auto& cpu = SharedPlanner().context()->cpu;
  for (const auto& pool : {cpu->pool(), cpu->dynamic_pool()}) {
    if (auto* p = dynamic_cast<tarn::runtime::AlignUpPool*>(pool.get())) p->Trim();
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  tarn::utility::SetLogLevel(1000);  // keep the fuzzer's output readable
  SharedPlanner();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tarn::convert::ConvertOptions options;
  options.plan.target = tarn::convert::Target::kFallback;
  options.verify = false;  // whole nets from hostile packages are the net target's job
  // Small limits keep every allocation a hostile model can ask for modest.
  options.limits.max_bytes = 1 << 20;
  options.limits.max_nodes = 512;
  options.limits.max_elements = 1 << 20;
  tarn::convert::ConvertResult result;
  bool converted = false;
  try {
    converted = tarn::convert::ConvertOnnx(data, size, options, SharedPlanner(), &result);
  } catch (...) {
    std::abort();  // the converter reports by result, it never throws
  }
  TrimPools();
  if (!converted) {
    if (result.problems.empty()) std::abort();  // a refusal always says why
    return 0;
  }
  // The package must write and read back.
  tarn::runtime::JSONDocument doc;
  std::string json;
  {
    auto value = tarn::runtime::ToJSONValue(result.package.get(), doc.GetAllocator());
    json = tarn::runtime::SerializeJSONValue(value);
  }
  tarn::runtime::TRNModel back;
  if (!back.FromJsonString(json.c_str())) std::abort();
  return 0;
}
