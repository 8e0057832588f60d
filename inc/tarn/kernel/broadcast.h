// The operation table and shape rules of the broadcast kernels, and the raw
// per-channel multiply routines.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <vector>

namespace tarn {
namespace kernel {

using BroadcastFunc = std::function<float(const float&, const float&)>;

// Code -> operation (a is the first input): 0 a + b, 1 a - b, 2 a * b, 3 a / b,
// 4 max and 5 min with the scalar max/min instruction's rule (b when either
// is NaN). Filled when the library loads; looking up another code inserts an
// empty entry.
extern std::map<std::uint16_t, BroadcastFunc> BroadcastOpType2Func;

// Dims that broadcast: aligned from the end, every pair over the shorter rank
// is equal or has a 1. A 0 paired with anything but 0 is refused: the larger
// dim would be taken and the empty operand read.
bool BroadcastDimsCompatible(const std::vector<unsigned>& a, const std::vector<unsigned>& b);
// The longer dims with the aligned trailing dims replaced by the pairwise maximum.
std::vector<unsigned> BroadcastOutputDims(const std::vector<unsigned>& a, const std::vector<unsigned>& b);

namespace functional {

// out[i] = func(a at i, b at i), each operand's coordinates aligned from the
// end with the output's and held at 0 where its dim is 1.
void BroadcastOperator_F32(const float* a, const std::vector<unsigned>& a_dims, const float* b,
                           const std::vector<unsigned>& b_dims, const BroadcastFunc& func, float* dst,
                           const std::vector<unsigned>& dst_dims);

// dst[blk][p][j] = scale[blk][j] * data[blk][p][j] over `blocks` channel blocks of
// `pixels` pixel vectors of 4 (or 8) floats. AVX2 + FMA.
void broadcast_mul_c4hw4_avx_f32_m1(const float* scale, const float* data, std::uint32_t blocks, std::uint32_t pixels,
                                    float* dst);
void broadcast_mul_c8hw8_avx_f32_m1(const float* scale, const float* data, std::uint32_t blocks, std::uint32_t pixels,
                                    float* dst);

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
