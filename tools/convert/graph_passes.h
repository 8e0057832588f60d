// Graph work before mapping: each pass rewrites the graph in place and keeps
// it topologically ordered; a value that a pass removes is renamed to what
// replaces it in every reader and in the graph outputs.
#pragma once

#include <string>
#include <vector>

#include "convert/onnx_graph.h"

namespace tarn {
namespace convert {

// What the passes did, for the tool's summary.
struct PassReport {
  int removed = 0;        // Identity, Dropout, no-op Cast
  int folded = 0;         // nodes evaluated into constants
  int batch_norms = 0;    // batch normalisations folded into the preceding layer
  int affine = 0;         // constant multiplies and adds folded into the preceding layer
  int hard_swish = 0;     // x * HardSigmoid(x) patterns fused into HardSwish
  int pads = 0;           // Pad nodes folded into the padding of the next node
};

// Identity, inference-mode Dropout and Casts between float types.
void RemoveNoOps(Graph* graph, PassReport* report);
// Evaluates every node whose inputs are all constant (Shape reads only the
// static shape of its input), the Shape/Gather/Unsqueeze/Concat chains of
// exported flatten and reshape included. Results larger than `max_elements`
// are left as nodes.
void FoldConstants(Graph* graph, PassReport* report, std::int64_t max_elements = std::int64_t(1) << 22);
// A constant zero Pad of the spatial dims before a Conv, or before an
// AveragePool that counts padding, becomes that node's own padding; a Pad of
// nothing goes.
void FoldPadding(Graph* graph, PassReport* report);
// Sub and Div by a constant become Add and Mul by its negation and reciprocal.
void CanonicaliseArithmetic(Graph* graph);
// Folds BatchNormalization, and Mul/Add by per-channel constants, into the
// convolution, transposed convolution or Gemm that produces their input when
// that layer has no other reader.
void FoldIntoWeights(Graph* graph, PassReport* report);
// x * HardSigmoid(x) with the hard-swish constants becomes HardSwish(x).
void FuseHardSwish(Graph* graph, PassReport* report);

// Replaces every read of `from` (node inputs and graph outputs) by `to`.
void RenameValue(Graph* graph, const std::string& from, const std::string& to);

// Evaluates one folding operator on constant inputs (exposed for tests).
// False when the operator or its inputs are outside what folding handles.
bool EvaluateNode(const Graph& graph, const Node& node, std::vector<ConstTensor>* outputs,
                  std::int64_t max_elements = std::int64_t(1) << 22);

}  // namespace convert
}  // namespace tarn
