// Reads an NPY file from hostile bytes. Any refusal is fine; a crash, a hang,
// a leak or an exception is not. An array that is read must survive writing
// and reading back unchanged.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "tarn/utility/log.h"
#include "tarn/utility/npy.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  tarn::utility::SetLogLevel(1000);  // keep the fuzzer's output readable
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  tarn::utility::NpyArray array;
  if (!tarn::utility::DecodeNPY(data, size, &array)) return 0;
  std::size_t count = 1;
  for (unsigned d : array.shape) count *= d;
  if (array.shape.empty() || count != array.values.size() || count * 4 > size) std::abort();
  std::vector<std::uint8_t> file;
  if (!tarn::utility::EncodeNPY(array.values.data(), array.shape, &file)) std::abort();
  tarn::utility::NpyArray back;
  if (!tarn::utility::DecodeNPY(file.data(), file.size(), &back) || back.shape != array.shape ||
      std::memcmp(back.values.data(), array.values.data(), count * 4) != 0) {
    std::abort();
  }
  return 0;
}
