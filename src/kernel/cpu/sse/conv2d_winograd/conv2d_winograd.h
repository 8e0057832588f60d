// SSE Winograd F(2x2, 3x3) convolutions on CHW (3x3, stride 1, one group).
//
// The padded input is cut into 4 x 4 tiles overlapping by two, one per 2 x 2
// output block; tile d becomes V = B^T d B, the filter g was turned into
// U = G g G^T once in Config (see WinogradConv2DBase), and for each of the 16
// positions xi the products over input channels form a matrix product
// M_xi = U_xi (N x C) V_xi (C x tiles); each output block is then
// A^T M A with
//   B^T = [1 0 -1 0; 0 1 1 0; 0 -1 1 0; 0 1 0 -1],  A^T = [1 1 1 0; 0 1 -1 -1].
// That is 16 multiply-adds per input channel and output block of four pixels
// instead of 36. Tiles are numbered row by row over the whole map and eight
// consecutive tiles are one batch, two vectors of four tiles (a batch may span
// tile rows, so small maps fill every lane); the product's register tile is
// four output channels by those eight tiles. A batch inside one tile row is
// read in place; the others gather each lane's window, with zeros past the
// padded input (odd output sizes), and only real outputs are written.
//
// The two members differ in schedule:
// M1 works batch by batch: transform the eight tiles of every input channel,
//    multiply, transform back into the output, then the next batch. Its
//    scratch is a few kilobytes per channel and stays in L1/L2, and the
//    output of a batch is written while its products are still in cache; the
//    whole transformed filter (16 N C floats) is read once per batch, from L2
//    while it fits there. Measured single-threaded, it wins on every ResNet-18
//    and SqueezeNet 3x3 layer down to 256 -> 256 at 14x14 (by 5 to 30 %).
// M2 transforms every tile of the input first, then runs the 16 matrix
//    products over all tiles in chunks of 64 tiles (each block of U_xi read
//    once per chunk, V_xi streamed once), then transforms every output block
//    back. Its scratch is 16 (C + N) floats per tile, streamed once each way;
//    it wins where the filter dwarfs the map (512 -> 512 at 7x7: a 16 MB
//    transformed filter that M1 streams from memory once per batch and M2
//    once in all); while the map's V and M scratch is the larger stream
//    (every other layer measured), M1 is ahead.
#pragma once

#include "kernel/cpu/fallback/conv2d/conv2d_fixed_base.h"

namespace tarn {
namespace kernel {

void Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd23_M1_Convolution(const TensorCPUPtr& input,
                                                                      const TensorCPUPtr& output,
                                                                      const TensorCPUPtr& weight);
void Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd23_M2_Convolution(const TensorCPUPtr& input,
                                                                      const TensorCPUPtr& output,
                                                                      const TensorCPUPtr& weight);

TRN_FIXED_CONV_MEMBER(Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M1, WinogradConv2DBase)
TRN_FIXED_CONV_MEMBER(Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M2, WinogradConv2DBase)

}  // namespace kernel
}  // namespace tarn
