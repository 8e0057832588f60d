// The key functions (destructors) of the SSE fixed-geometry members, in
// baseline code: their vtables, GetName and every check that runs before
// Forward are thus baseline code, so any of them can be created and
// configured on any x86-64. Only Forward runs SSE code.
#include "kernel/cpu/sse/conv2d_k1x1/conv2d_k1x1.h"
#include "kernel/cpu/sse/conv2d_k3x3/conv2d_k3x3.h"
#include "kernel/cpu/sse/conv2d_k1x3_k3x1/conv2d_k1x3_k3x1.h"
#include "kernel/cpu/sse/conv2d_winograd/conv2d_winograd.h"
#include "kernel/cpu/sse/conv2d_int16/conv2d_int16.h"

namespace tarn {
namespace kernel {

Conv2d_K1x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1::~Conv2d_K1x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1() = default;
Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1::~Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1() = default;
Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2::~Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2() = default;
Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1::~Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1() = default;
Conv2d_K1x1_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1::~Conv2d_K1x1_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1() = default;
Conv2d_K1x1_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1::~Conv2d_K1x1_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1() = default;
Conv2d_K1x1_S2x2_D1x1_G1_SSE_C8HW8_FLOAT_M1::~Conv2d_K1x1_S2x2_D1x1_G1_SSE_C8HW8_FLOAT_M1() = default;
Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1::~Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1() = default;
Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1::~Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1() = default;
Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2::~Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2() = default;
Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M3::~Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M3() = default;
Conv2d_K3x3_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1::~Conv2d_K3x3_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1() = default;
Conv2d_K3x3_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1::~Conv2d_K3x3_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1() = default;
Conv2d_K3x3_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1::~Conv2d_K3x3_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1() = default;
Conv2d_K3x3_S2x2_D1x1_G1_SSE_C8HW8_FLOAT_M1::~Conv2d_K3x3_S2x2_D1x1_G1_SSE_C8HW8_FLOAT_M1() = default;
Conv2d_K1x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1::~Conv2d_K1x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1() = default;
Conv2d_K1x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1::~Conv2d_K1x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1() = default;
Conv2d_K1x3_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1::~Conv2d_K1x3_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1() = default;
Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1::~Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1() = default;
Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M2::~Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M2() = default;
Conv2d_K3x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1::~Conv2d_K3x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1() = default;
Conv2d_K3x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1::~Conv2d_K3x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1() = default;
Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M1::~Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M1() = default;
Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M2::~Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M2() = default;
Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_Int16_M1::~Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_Int16_M1() = default;

}  // namespace kernel
}  // namespace tarn
