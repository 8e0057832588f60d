#include "convert/op_support.h"

#include <set>

namespace tarn {
namespace convert {
namespace {

const std::set<std::string>& Mapped() {
  static const auto* ops = new std::set<std::string>{
      "Conv", "ConvTranspose", "Gemm", "MatMul", "BatchNormalization", "InstanceNormalization", "Relu", "Clip",
      "LeakyRelu", "PRelu", "Sigmoid", "Tanh", "HardSigmoid", "HardSwish", "Elu", "Softmax", "Add", "Sub", "Mul",
      "Div", "MaxPool", "AveragePool", "GlobalAveragePool", "GlobalMaxPool", "Concat", "Reshape", "Flatten",
      "Squeeze", "Unsqueeze", "Transpose", "Slice", "Pad", "Resize", "Upsample", "DepthToSpace", "SpaceToDepth",
      "GridSample", "LSTM", "GRU", "RNN", "Identity", "Dropout", "Constant", "Gather"};
  return *ops;
}

const std::set<std::string>& Folding() {
  static const auto* ops = new std::set<std::string>{
      "Shape", "Gather", "Unsqueeze", "Squeeze", "Concat", "Slice", "Cast", "Reshape", "ConstantOfShape", "Range",
      "Equal", "Where", "Mul", "Add", "Sub", "Div", "Floor", "Ceil", "Sqrt", "Size", "Expand", "Neg", "Identity",
      "ReduceProd", "Transpose"};
  return *ops;
}

}  // namespace

bool IsKnownOperator(const std::string& op) { return Mapped().count(op) != 0 || Folding().count(op) != 0; }

bool IsFoldingOperator(const std::string& op) { return Folding().count(op) != 0 && Mapped().count(op) == 0; }

}  // namespace convert
}  // namespace tarn
