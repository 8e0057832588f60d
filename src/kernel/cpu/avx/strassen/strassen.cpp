#include "kernel/cpu/avx/strassen/strassen.h"

#include <initializer_list>

#include "kernel/cpu/avx/conv_core/avx_registers.h"
#include "kernel/cpu/fallback/conv2d/conv2d_direct_steps.h"
#include "tarn/kernel/native_gemm.h"
#include "tarn/runtime/context.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {
namespace native {
namespace {

using std::ptrdiff_t;

constexpr unsigned kTile = 64;    // floats per element of A
constexpr unsigned kVector = 8;   // floats per element of B and C

// A matrix of elements of `unit` floats inside a buffer of `stride` elements
// per row.
struct Mat {
  float* p;
  unsigned rows, cols, bufRows, bufCols, unit;

  float* Row(unsigned r) const { return p + ptrdiff_t(r) * bufCols * unit; }
  // Quadrant (i, j) of a matrix with even sizes.
  Mat Quadrant(unsigned i, unsigned j) const {
    return {p + (ptrdiff_t(i) * (rows / 2) * bufCols + ptrdiff_t(j) * (cols / 2)) * unit, rows / 2, cols / 2,
            bufRows, bufCols, unit};
  }
};

// A temporary of rows x cols elements from the device, and its storage.
struct Temp {
  std::shared_ptr<runtime::TensorCPU> tensor;
  Mat m;
  Temp(runtime::DeviceCPU& device, unsigned rows, unsigned cols, unsigned unit)
      : tensor(device.CreateF32FlexiableMainMemory({rows, cols, unit})),
        m{tensor->DataAs<float>(), rows, cols, rows, cols, unit} {}
};

// out = sum of sign * term, element by element (rows of cols * unit floats,
// a multiple of 8).
void Combine(const Mat& out, std::initializer_list<std::pair<float, Mat>> terms) {
  const ptrdiff_t floats = ptrdiff_t(out.cols) * out.unit;
  for (unsigned r = 0; r < out.rows; ++r) {
    float* o = out.Row(r);
    bool first = true;
    for (const auto& term : terms) {
      const float* t = term.second.Row(r);
      const __m256 sign = _mm256_set1_ps(term.first);
      for (ptrdiff_t i = 0; i < floats; i += 8) {
        const __m256 v = _mm256_mul_ps(sign, _mm256_loadu_ps(t + i));
        _mm256_storeu_ps(o + i, first ? v : _mm256_add_ps(_mm256_loadu_ps(o + i), v));
      }
      first = false;
    }
  }
}

unsigned Product(const Mat& a, const Mat& b, const Mat& c, unsigned level,
                 const std::shared_ptr<runtime::Context>& context) {
  return Strassen_M1(a.p, a.rows, a.cols, a.bufRows, a.bufCols, b.p, b.rows, b.cols, b.bufRows, b.bufCols, c.p,
                     c.rows, c.cols, c.bufRows, c.bufCols, level, context);
}

}  // namespace

void GEMM(const float* a, unsigned aRows, unsigned aCols, unsigned aBufRows, unsigned aBufCols, const float* b,
          unsigned bRows, unsigned bCols, unsigned bBufRows, unsigned bBufCols, float* c, unsigned cRows,
          unsigned cCols, unsigned cBufRows, unsigned cBufCols) {
  TARN_NATIVE_ASSERT(aCols == bRows);
  TARN_NATIVE_ASSERT(aRows == cRows);
  TARN_NATIVE_ASSERT(bCols == cCols);
  TARN_NATIVE_ASSERT(aCols <= aBufCols && bCols <= bBufCols && cCols <= cBufCols);
  TARN_NATIVE_ASSERT(aRows <= aBufRows && bRows <= bBufRows && cRows <= cBufRows);
  if (cRows == 0 || cCols == 0) return;
  // The blocked pass of a 1x1 convolution over one row of cCols pixels:
  // input blocks are B's rows, output blocks C's rows, weight tiles A's.
  direct::BlockedPass pass{};
  pass.src = b;
  pass.srcBlock = ptrdiff_t(bBufCols) * kVector;
  pass.inBlocks = static_cast<int>(aCols);
  pass.weight = a;
  pass.weightGroup = ptrdiff_t(aBufCols) * kTile;
  pass.dst = c;
  pass.dstBlock = ptrdiff_t(cBufCols) * kVector;
  pass.groups = static_cast<int>(cRows);
  pass.outH = 1;
  pass.outW = static_cast<int>(cCols);
  direct::RunBlocked<AvxRegisters, 8, 1, 1, 1, 1, direct::OutMode::kWhole, direct::Init::kZero>(pass);
}

unsigned Strassen_M1(const float* a, unsigned aRows, unsigned aCols, unsigned aBufRows, unsigned aBufCols,
                     const float* b, unsigned bRows, unsigned bCols, unsigned bBufRows, unsigned bBufCols, float* c,
                     unsigned cRows, unsigned cCols, unsigned cBufRows, unsigned cBufCols, unsigned level,
                     const std::shared_ptr<runtime::Context>& context) {
  // (An empty product has nothing to split.)
  const bool empty = aRows == 0 || aCols == 0 || bCols == 0;
  if (level > 1 || empty || aRows % 2 != 0 || aCols % 2 != 0 || bRows % 2 != 0 || bCols % 2 != 0) {
    GEMM(a, aRows, aCols, aBufRows, aBufCols, b, bRows, bCols, bBufRows, bBufCols, c, cRows, cCols, cBufRows,
         cBufCols);
    return 1;
  }
  TARN_NATIVE_ASSERT(aCols == bRows && aRows == cRows && bCols == cCols);
  TARN_NATIVE_ASSERT(context && context->cpu);
  runtime::DeviceCPU& device = *context->cpu;
  // The operands are only read: the quadrant views drop const for the shared type.
  const Mat A{const_cast<float*>(a), aRows, aCols, aBufRows, aBufCols, kTile};
  const Mat B{const_cast<float*>(b), bRows, bCols, bBufRows, bBufCols, kVector};
  const Mat C{c, cRows, cCols, cBufRows, cBufCols, kVector};
  const Mat A11 = A.Quadrant(0, 0), A12 = A.Quadrant(0, 1), A21 = A.Quadrant(1, 0), A22 = A.Quadrant(1, 1);
  const Mat B11 = B.Quadrant(0, 0), B12 = B.Quadrant(0, 1), B21 = B.Quadrant(1, 0), B22 = B.Quadrant(1, 1);
  const unsigned n = aRows / 2, k = aCols / 2, m = bCols / 2;
  Temp sa(device, n, k, kTile), sb(device, k, m, kVector);
  Temp p1(device, n, m, kVector), p2(device, n, m, kVector), p3(device, n, m, kVector), p4(device, n, m, kVector),
      p5(device, n, m, kVector), p6(device, n, m, kVector), p7(device, n, m, kVector);
  const unsigned next = level + 1;
  unsigned products = 0;
  Combine(sa.m, {{1.0f, A11}, {1.0f, A22}});
  Combine(sb.m, {{1.0f, B11}, {1.0f, B22}});
  products += Product(sa.m, sb.m, p1.m, next, context);
  Combine(sa.m, {{1.0f, A21}, {1.0f, A22}});
  products += Product(sa.m, B11, p2.m, next, context);
  Combine(sb.m, {{1.0f, B12}, {-1.0f, B22}});
  products += Product(A11, sb.m, p3.m, next, context);
  Combine(sb.m, {{1.0f, B21}, {-1.0f, B11}});
  products += Product(A22, sb.m, p4.m, next, context);
  Combine(sa.m, {{1.0f, A11}, {1.0f, A12}});
  products += Product(sa.m, B22, p5.m, next, context);
  Combine(sa.m, {{1.0f, A21}, {-1.0f, A11}});
  Combine(sb.m, {{1.0f, B11}, {1.0f, B12}});
  products += Product(sa.m, sb.m, p6.m, next, context);
  Combine(sa.m, {{1.0f, A12}, {-1.0f, A22}});
  Combine(sb.m, {{1.0f, B21}, {1.0f, B22}});
  products += Product(sa.m, sb.m, p7.m, next, context);
  Combine(C.Quadrant(0, 0), {{1.0f, p1.m}, {1.0f, p4.m}, {-1.0f, p5.m}, {1.0f, p7.m}});
  Combine(C.Quadrant(0, 1), {{1.0f, p3.m}, {1.0f, p5.m}});
  Combine(C.Quadrant(1, 0), {{1.0f, p2.m}, {1.0f, p4.m}});
  Combine(C.Quadrant(1, 1), {{1.0f, p1.m}, {-1.0f, p2.m}, {1.0f, p3.m}, {1.0f, p6.m}});
  return products;
}

}  // namespace native

namespace {

// The product into the uninitialised output, then the bias added in one
// pass (lanes beyond the bias values get zero, keeping the tail lanes zero).
void StrassenStep(const TensorCPUPtr& input, const TensorCPUPtr& output, const TensorCPUPtr& weight,
                  const TensorCPUPtr& bias, const std::shared_ptr<runtime::Context>& context) {
  const auto& di = input->shape.dims;
  const auto& d = output->shape.dims;
  const unsigned outBlocks = d[0], inBlocks = di[0], pixels = d[1] * d[2];
  native::Strassen_M1(weight->DataAs<float>(), outBlocks, inBlocks, outBlocks, inBlocks, input->DataAs<float>(),
                      inBlocks, pixels, inBlocks, pixels, output->DataAs<float>(), outBlocks, pixels, outBlocks,
                      pixels, 0, context);
  if (!bias) return;
  const unsigned count = static_cast<unsigned>(bias->shape.ElementCount());
  const float* values = bias->DataAs<float>();
  float* o = output->DataAs<float>();
  for (unsigned ob = 0; ob < outBlocks; ++ob) {
    alignas(32) float lanes[8] = {};
    for (unsigned j = 0; j < 8 && 8 * ob + j < count; ++j) lanes[j] = values[8 * ob + j];
    const __m256 v = _mm256_load_ps(lanes);
    for (unsigned p = 0; p < pixels; ++p, o += 8) _mm256_storeu_ps(o, _mm256_add_ps(_mm256_loadu_ps(o), v));
  }
}

}  // namespace

TRN_CONV2D_WRITING_FORWARD(Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_Strassen_M1, nullptr, StrassenStep)

}  // namespace kernel
}  // namespace tarn
