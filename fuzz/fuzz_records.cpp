// Reads record trees from hostile bytes: the first byte chooses the record
// (test record, tensor shape, model, package, layer factory, configuration)
// and JSON text or the binary stream format; the rest is the input. Any outcome but a crash,
// a hang or a leak is fine; the library reports bad input by exception.
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "../tests/runtime/all_types_record.h"
#include "tarn/runtime/binary_stream.h"
#include "tarn/runtime/inference_config.h"
#include "tarn/runtime/model_info.h"
#include "tarn/runtime/tensor.h"
#include "tarn/utility/log.h"

namespace {

template <typename Record>
Record MakeRecord() {
  return Record();
}

template <>
tarn::testing::AllTypesRecord MakeRecord<tarn::testing::AllTypesRecord>() {
  tarn::testing::AllTypesRecord r;
  r.visit_char = false;
  return r;
}

template <typename Record>
void ReadJson(const std::string& text) {
  Record record = MakeRecord<Record>();
  try {
    record.FromJsonString(text.c_str());
  } catch (const std::runtime_error&) {
  }
}

template <typename Record>
void ReadBinary(const uint8_t* data, size_t size) {
  if (size == 0) return;
  FILE* stream = fmemopen(const_cast<uint8_t*>(data), size, "rb");
  if (stream == nullptr) return;
  Record record = MakeRecord<Record>();
  try {
    record.VisitAttr(std::make_shared<tarn::runtime::FILEReader>(stream, 0));
  } catch (const std::runtime_error&) {
  }
  std::fclose(stream);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  tarn::utility::SetLogLevel(1000);  // keep the fuzzer's output readable
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const uint8_t mode = data[0];
  ++data;
  --size;
  const std::string text(reinterpret_cast<const char*>(data), size);
  switch (mode % 10) {
    case 0:
      ReadJson<tarn::testing::AllTypesRecord>(text);
      break;
    case 1:
      ReadBinary<tarn::testing::AllTypesRecord>(data, size);
      break;
    case 2:
      ReadJson<tarn::runtime::TensorShape>(text);
      break;
    case 3:
      ReadBinary<tarn::runtime::TensorShape>(data, size);
      break;
    case 4:
      ReadJson<tarn::runtime::TRModelInfo>(text);
      break;
    case 5:
      ReadBinary<tarn::runtime::TRModelInfo>(data, size);
      break;
    case 6:
      ReadJson<tarn::runtime::TRNModel>(text);
      break;
    case 7:
      ReadBinary<tarn::runtime::TRNModel>(data, size);
      break;
    case 8:
      try {
        tarn::runtime::LayerInfoFactory(text);
      } catch (const std::runtime_error&) {
      }
      break;
    case 9: {
      tarn::runtime::InferenceParamRegistry registry;
      for (const std::string& name : tarn::runtime::InferenceParamNames()) {
        registry.Register(name, [name] { return tarn::runtime::CreateInferenceParamPtr(name); }, false);
      }
      try {
        tarn::runtime::CreateConfigFromJSON(text, registry);
      } catch (const std::runtime_error&) {
      }
      break;
    }
  }
  return 0;
}
