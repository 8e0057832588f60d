// The weight re-ordering of the column-matrix members, run by Config: plain
// C++ for any processor, whatever its name says.
#include "tarn/kernel/native_gemm.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {
namespace native {

void conv_im2col_sgemm_transform_kernel_sse(const float* kernel, float* kernel_tm, int inch, int outch,
                                            int kernel_size) {
  TARN_NATIVE_ASSERT(inch > 0 && outch > 0 && kernel_size > 0);
  const long rows = long(inch) * kernel_size;  // column-matrix rows (c, ky, kx)
  const int blocks = (outch + 3) / 4;
  for (int nb = 0; nb < blocks; ++nb) {
    float* tm = kernel_tm + long(nb) * rows * 4;
    for (long k = 0; k < rows; ++k) {
      for (int j = 0; j < 4; ++j) {
        const int n = 4 * nb + j;
        tm[k * 4 + j] = n < outch ? kernel[long(n) * rows + k] : 0.0f;
      }
    }
  }
}

}  // namespace native
}  // namespace kernel
}  // namespace tarn
