#include "tarn/runtime/layer_info.h"

#include <cstring>
#include <functional>
#include <stdexcept>
#include <unordered_map>

#include "runtime/base64.h"
#include "runtime/record_registration.h"
#include "tarn/runtime/binary_stream.h"
#include "tarn/runtime/json_binding.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace runtime {
namespace {

void VisitPaddingsAndGeometry(const VisitorPtr& v, ConvGeometry& g, void* pl, void* pt, void* pr, void* pb,
                              bool signed_paddings) {
  v->Visit(&g.in_channels, "in_channels");
  v->Visit(&g.out_channels, "out_channels");
  v->Visit(&g.kernel_x, "kernel_x");
  v->Visit(&g.kernel_y, "kernel_y");
  if (signed_paddings) {
    v->Visit(static_cast<short*>(pl), "padding_l");
    v->Visit(static_cast<short*>(pt), "padding_t");
    v->Visit(static_cast<short*>(pr), "padding_r");
    v->Visit(static_cast<short*>(pb), "padding_b");
  } else {
    v->Visit(static_cast<unsigned short*>(pl), "padding_l");
    v->Visit(static_cast<unsigned short*>(pt), "padding_t");
    v->Visit(static_cast<unsigned short*>(pr), "padding_r");
    v->Visit(static_cast<unsigned short*>(pb), "padding_b");
  }
  v->Visit(&g.stride_x, "stride_x");
  v->Visit(&g.stride_y, "stride_y");
  v->Visit(&g.dilation_x, "dilation_x");
  v->Visit(&g.dilation_y, "dilation_y");
  v->Visit(&g.groups, "groups");
  v->Visit(&g.if_bias, "if_bias");
}

// Window, paddings and strides of the pooling records.
template <typename Pool>
void VisitPoolWindow(const VisitorPtr& v, Pool& p) {
  v->Visit(&p.kernel_x, "kernel_x");
  v->Visit(&p.kernel_y, "kernel_y");
  v->Visit(&p.padding_l, "padding_l");
  v->Visit(&p.padding_t, "padding_t");
  v->Visit(&p.padding_r, "padding_r");
  v->Visit(&p.padding_b, "padding_b");
  v->Visit(&p.stride_x, "stride_x");
  v->Visit(&p.stride_y, "stride_y");
}

void VisitNormHead(const VisitorPtr& v, NormStatistics& n, bool with_features) {
  if (with_features) v->Visit(&n.num_features, "num_features");
  v->Visit(&n.eps, "eps");
  v->Visit(&n.momentum, "momentum");
  v->Visit(&n.if_affine, "if_affine");
  v->Visit(&n.if_track_running_stats, "if_track_running_stats");
}

}  // namespace

// ---------------------------------------------------------------- LayerInfo

LayerInfo::LayerInfo() : LayerInfo(LAYER_UNKNOWN) { serializable_type_ = GetClassTypeName(); }

LayerInfo::LayerInfo(ENUM_TYPE_LAYER code) : type(code) { serializable_type_ = GetClassTypeName(); }

void LayerInfo::VisitAttr(const VisitorPtr& v) {
  Serializable::VisitAttr(v);
  try {
    unsigned short code = type;
    v->Visit(&code, "type");
    type = static_cast<ENUM_TYPE_LAYER>(code);
  } catch (const std::exception&) {
    utility::Log(utility::kLogWarning, "This may be a old version model file.");
  }
  v->Visit(&id, "id");
  v->Visit(&input_ids, "input_ids");
  v->Visit(&read_count, "read_count");
}

void LayerInfo::VisitBlob(const VisitorPtr& v, std::string* blob, const char* key) {
  if (auto writer = std::dynamic_pointer_cast<FILEWriter>(v)) {
    FileWriter_Visit_B64Encoded_F16_Data(writer, *blob);
  } else if (auto reader = std::dynamic_pointer_cast<FILEReader>(v)) {
    FileReader_Visit_B64Encoded_F16_Data(reader, *blob);
  } else {
    v->Visit(blob, key);
  }
}

void LayerInfo::VisitBlobList(const VisitorPtr& v, std::vector<std::string>* blobs, const char* key) {
  if (auto writer = std::dynamic_pointer_cast<FILEWriter>(v)) {
    FileWriter_Visit_Vec_B64Encoded_F16_Data(writer, *blobs);
  } else if (auto reader = std::dynamic_pointer_cast<FILEReader>(v)) {
    FileReader_Visit_Vec_B64Encoded_F16_Data(reader, *blobs);
  } else {
    v->Visit(blobs, key);
  }
}

// ---------------------------------------------------------------- records

InputInfo::InputInfo() : LayerInfo(LAYER_INPUT) { serializable_type_ = GetClassTypeName(); }
void InputInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  v->Visit(&location, "location");
}

ActivationInfo::ActivationInfo() : LayerInfo(LAYER_ACTIVATION) { serializable_type_ = GetClassTypeName(); }
void ActivationInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  v->Visit(&activation_type, "activation_type");
  v->Visit(&activation_alpha, "activation_alpha");
  v->Visit(&activation_beta, "activation_beta");
  v->Visit(&num_parameters, "num_parameters");
  VisitBlob(v, &weight, "weight");
}

Conv2dInfo::Conv2dInfo() : LayerInfo(LAYER_CONV2D) { serializable_type_ = GetClassTypeName(); }
void Conv2dInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  VisitPaddingsAndGeometry(v, *this, &padding_l, &padding_t, &padding_r, &padding_b, false);
  VisitBlob(v, &weight, "weight");
  VisitBlob(v, &bias, "bias");
}

ConvTranspose2dInfo::ConvTranspose2dInfo() : LayerInfo(LAYER_CONVTRANSPOSE2D) { serializable_type_ = GetClassTypeName(); }
void ConvTranspose2dInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  VisitPaddingsAndGeometry(v, *this, &padding_l, &padding_t, &padding_r, &padding_b, true);
  VisitBlob(v, &weight, "weight");
  VisitBlob(v, &bias, "bias");
}

AvgPool2dInfo::AvgPool2dInfo() : LayerInfo(LAYER_AVGPOOL2D) { serializable_type_ = GetClassTypeName(); }
void AvgPool2dInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  VisitPoolWindow(v, *this);
  v->Visit(&ceil_mode, "ceil_mode");
  v->Visit(&count_include_pad, "count_include_pad");
}

MaxPool2dInfo::MaxPool2dInfo() : LayerInfo(LAYER_MAXPOOL2D) { serializable_type_ = GetClassTypeName(); }
void MaxPool2dInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  VisitPoolWindow(v, *this);
  v->Visit(&dilation_x, "dilation_x");
  v->Visit(&dilation_y, "dilation_y");
  v->Visit(&ceil_mode, "ceil_mode");
}

InstanceNorm2dInfo::InstanceNorm2dInfo() : LayerInfo(LAYER_INSTANCENORM2D) { serializable_type_ = GetClassTypeName(); }
void InstanceNorm2dInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  VisitNormHead(v, *this, true);
  VisitBlob(v, &scale, "scale");
  VisitBlob(v, &shift, "shift");
}

BatchNorm2dInfo::BatchNorm2dInfo() : LayerInfo(LAYER_BATCHNORM2D) { serializable_type_ = GetClassTypeName(); }
void BatchNorm2dInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  VisitBatchNorm(v, *this);
}

template <typename Norm>
void LayerInfo::VisitBatchNorm(const VisitorPtr& v, Norm& n) {
  VisitNormHead(v, n, true);
  VisitBlob(v, &n.scale, "scale");
  VisitBlob(v, &n.shift, "shift");
  VisitBlob(v, &n.variance, "variance");
  VisitBlob(v, &n.mean, "mean");
  v->Visit(&n.num_batches_tracked, "num_batches_tracked");
}

BatchNorm1dInfo::BatchNorm1dInfo() : LayerInfo(LAYER_BATCHNORM1D) { serializable_type_ = GetClassTypeName(); }
void BatchNorm1dInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  VisitBatchNorm(v, *this);
}

Upsample2dInfo::Upsample2dInfo() : LayerInfo(LAYER_UPSAMPLE2D) { serializable_type_ = GetClassTypeName(); }
void Upsample2dInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  v->Visit(&scale_factor_y, "scale_factor_y");
  v->Visit(&scale_factor_x, "scale_factor_x");
  v->Visit(&align_corner, "align_corner");
  v->Visit(&unsample_type, "unsample_type");
}

ElementWiseOperatorInfo::ElementWiseOperatorInfo() : LayerInfo(LAYER_ELEMENTWISE) { serializable_type_ = GetClassTypeName(); }
void ElementWiseOperatorInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  v->Visit(&op_type, "op_type");
}

ConcatenateInfo::ConcatenateInfo() : LayerInfo(LAYER_CONCATENATE) { serializable_type_ = GetClassTypeName(); }
void ConcatenateInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  v->Visit(&dim, "dim");
}

TensorReshapeInfo::TensorReshapeInfo() : LayerInfo(LAYER_TENSOR_RESHAPE) { serializable_type_ = GetClassTypeName(); }
void TensorReshapeInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  v->Visit(&new_shape, "new_shape");
}

TensorTransposeInfo::TensorTransposeInfo() : LayerInfo(LAYER_TENSOR_TRANSPOSE) { serializable_type_ = GetClassTypeName(); }
void TensorTransposeInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  v->Visit(&axes, "axes");
}

TensorSqueezeInfo::TensorSqueezeInfo() : LayerInfo(LAYER_TENSOR_SQUEEZE) { serializable_type_ = GetClassTypeName(); }
void TensorSqueezeInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  v->Visit(&dim, "dim");
}

TensorUnSqueezeInfo::TensorUnSqueezeInfo() : LayerInfo(LAYER_TENSOR_SQUEEZE) { serializable_type_ = GetClassTypeName(); }
void TensorUnSqueezeInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  v->Visit(&dim, "dim");
}

FullConnectionInfo::FullConnectionInfo() : LayerInfo(LAYER_FULLCONNECTION) { serializable_type_ = GetClassTypeName(); }
void FullConnectionInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  v->Visit(&in_features, "in_features");
  v->Visit(&out_features, "out_features");
  v->Visit(&if_bias, "if_bias");
  VisitBlob(v, &weight, "weight");
  VisitBlob(v, &bias, "bias");
}

PixelShuffleInfo::PixelShuffleInfo() : LayerInfo(LAYER_PIXELSHUFFLE) { serializable_type_ = GetClassTypeName(); }
void PixelShuffleInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  v->Visit(&upscale_factor, "upscale_factor");
}

void TensorDimemsionSamplingInfo::VisitAttr(const VisitorPtr& v) {
  Serializable::VisitAttr(v);
  v->Visit(&sampling_type, "sampling_type");
  v->Visit(&data, "data");
}

TensorGetItemInfo::TensorGetItemInfo() : LayerInfo(LAYER_TENSOR_GETITEM) { serializable_type_ = GetClassTypeName(); }
void TensorGetItemInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  unsigned short count = static_cast<unsigned short>(sampling_infos.size());
  v->Visit(&count, "num_sampling_infos");
  sampling_infos.resize(count);  // at most 65535 small records
  for (unsigned short i = 0; i < count; ++i) {
    const std::string key = std::to_string(i);
    v->Visit(&sampling_infos[i], key.c_str());
  }
}

SQFCConv2dInfo::SQFCConv2dInfo() : LayerInfo(LAYER_SQFC_CONV2D) { serializable_type_ = GetClassTypeName(); }
void SQFCConv2dInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  VisitPaddingsAndGeometry(v, *this, &padding_l, &padding_t, &padding_r, &padding_b, true);
  v->Visit(&w_clip, "w_clip");
  v->Visit(&b_clip, "b_clip");
  v->Visit(&a_clip, "a_clip");
  v->Visit(&w_qbit, "w_qbit");
  v->Visit(&b_qbit, "b_qbit");
  v->Visit(&a_qbit, "a_qbit");
  VisitBlob(v, &weight, "weight");
  VisitBlob(v, &bias, "bias");
}

SQFCConv2dFoldedBNInfo::SQFCConv2dFoldedBNInfo() {
  type = LAYER_SQFC_CONV2D_FOLDED_BN;
  serializable_type_ = GetClassTypeName();
}
void SQFCConv2dFoldedBNInfo::VisitAttr(const VisitorPtr& v) {
  SQFCConv2dInfo::VisitAttr(v);
  VisitNormHead(v, *this, false);
  VisitBlob(v, &scale, "scale");
  VisitBlob(v, &shift, "shift");
  VisitBlob(v, &variance, "variance");
  VisitBlob(v, &mean, "mean");
}

AdaptiveAvgPool2dInfo::AdaptiveAvgPool2dInfo() : LayerInfo(LAYER_ADAPTIVE_AVGPOOL2D) { serializable_type_ = GetClassTypeName(); }
void AdaptiveAvgPool2dInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  v->Visit(&output_size, "output_size");
}

AdaptiveMaxPool2dInfo::AdaptiveMaxPool2dInfo() : LayerInfo(LAYER_ADAPTIVE_MAXPOOL2D) { serializable_type_ = GetClassTypeName(); }
void AdaptiveMaxPool2dInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  v->Visit(&output_size, "output_size");
}

GemmInfo::GemmInfo() : LayerInfo(LAYER_GEMM) { serializable_type_ = GetClassTypeName(); }
void GemmInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  v->Visit(&trans_a, "trans_a");
  v->Visit(&trans_b, "trans_b");
  v->Visit(&alpha, "alpha");
  v->Visit(&beta, "beta");
}

BroadcastOperatorInfo::BroadcastOperatorInfo() : LayerInfo(LAYER_BROADCAST) { serializable_type_ = GetClassTypeName(); }
void BroadcastOperatorInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  v->Visit(&op_type, "op_type");
}

ClipInfo::ClipInfo() : LayerInfo(LAYER_CLIP) { serializable_type_ = GetClassTypeName(); }
void ClipInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  v->Visit(&minimum_value, "minimum_value");
  v->Visit(&maximum_value, "maximum_value");
}

SoftmaxInfo::SoftmaxInfo() : LayerInfo(LAYER_SOFTMAX) { serializable_type_ = GetClassTypeName(); }
void SoftmaxInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  v->Visit(&dim, "dim");
}

namespace {

void VisitCellHead(const VisitorPtr& v, RecurrentCell& c) {
  v->Visit(&c.in_size, "in_size");
  v->Visit(&c.hidden_size, "hidden_size");
  v->Visit(&c.if_bias, "if_bias");
}

void VisitActivation(const VisitorPtr& v, RecurrentActivation& a) {
  v->Visit(&a.activation_type, "activation_type");
  v->Visit(&a.activation_alpha, "activation_alpha");
  v->Visit(&a.activation_beta, "activation_beta");
}

void VisitStackHead(const VisitorPtr& v, RecurrentStack& s) {
  v->Visit(&s.in_size, "in_size");
  v->Visit(&s.hidden_size, "hidden_size");
  v->Visit(&s.if_bias, "if_bias");
}

void VisitStackShape(const VisitorPtr& v, RecurrentStack& s) {
  v->Visit(&s.num_layers, "num_layers");
  v->Visit(&s.bidirectional, "bidirectional");
  v->Visit(&s.complex_rnn_type, "complex_rnn_type");
}

}  // namespace

// The weight helpers are protected members of LayerInfo; these forwarders keep
// the recurrent records short.
#define TRN_VISIT_CELL_WEIGHTS(v)            \
  VisitBlob(v, &weight_ih, "weight_ih");    \
  VisitBlob(v, &weight_hh, "weight_hh");    \
  VisitBlob(v, &bias_ih, "bias_ih");        \
  VisitBlob(v, &bias_hh, "bias_hh")

#define TRN_VISIT_STACK_WEIGHTS(v)                         \
  VisitBlobList(v, &weight_ih_forward, "weight_ih_forward"); \
  VisitBlobList(v, &weight_hh_forward, "weight_hh_forward"); \
  VisitBlobList(v, &bias_ih_forward, "bias_ih_forward");     \
  VisitBlobList(v, &bias_hh_forward, "bias_hh_forward");     \
  VisitBlobList(v, &weight_ih_reverse, "weight_ih_reverse"); \
  VisitBlobList(v, &weight_hh_reverse, "weight_hh_reverse"); \
  VisitBlobList(v, &bias_ih_reverse, "bias_ih_reverse");     \
  VisitBlobList(v, &bias_hh_reverse, "bias_hh_reverse")

RNNCellInfo::RNNCellInfo() : LayerInfo(LAYER_RNNCELL) { serializable_type_ = GetClassTypeName(); }
void RNNCellInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  VisitCellHead(v, *this);
  VisitActivation(v, *this);
  TRN_VISIT_CELL_WEIGHTS(v);
}

RNNInfo::RNNInfo() : LayerInfo(LAYER_RNN) { serializable_type_ = GetClassTypeName(); }
void RNNInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  VisitStackHead(v, *this);
  VisitActivation(v, *this);
  VisitStackShape(v, *this);
  TRN_VISIT_STACK_WEIGHTS(v);
}

LSTMCellInfo::LSTMCellInfo() : LayerInfo(LAYER_LSTMCELL) { serializable_type_ = GetClassTypeName(); }
void LSTMCellInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  VisitCellHead(v, *this);
  TRN_VISIT_CELL_WEIGHTS(v);
}

LSTMInfo::LSTMInfo() : LayerInfo(LAYER_LSTM) { serializable_type_ = GetClassTypeName(); }
void LSTMInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  VisitStackHead(v, *this);
  VisitStackShape(v, *this);
  TRN_VISIT_STACK_WEIGHTS(v);
}

GRUCellInfo::GRUCellInfo() : LayerInfo(LAYER_GRUCELL) { serializable_type_ = GetClassTypeName(); }
void GRUCellInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  VisitCellHead(v, *this);
  TRN_VISIT_CELL_WEIGHTS(v);
}

GRUInfo::GRUInfo() : LayerInfo(LAYER_GRU) { serializable_type_ = GetClassTypeName(); }
void GRUInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  VisitStackHead(v, *this);
  VisitStackShape(v, *this);
  TRN_VISIT_STACK_WEIGHTS(v);
}

#undef TRN_VISIT_CELL_WEIGHTS
#undef TRN_VISIT_STACK_WEIGHTS

SpaceToDepthInfo::SpaceToDepthInfo() : LayerInfo(LAYER_SPACE_TO_DEPTH) { serializable_type_ = GetClassTypeName(); }
void SpaceToDepthInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  v->Visit(&scale_factor, "scale_factor");
}

Conv1dInfo::Conv1dInfo() : LayerInfo(LAYER_CONV1D) { serializable_type_ = GetClassTypeName(); }
void Conv1dInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  v->Visit(&in_channels, "in_channels");
  v->Visit(&out_channels, "out_channels");
  v->Visit(&kernel_size, "kernel_size");
  v->Visit(&padding_f, "padding_f");
  v->Visit(&padding_b, "padding_b");
  v->Visit(&stride, "stride");
  v->Visit(&dilation, "dilation");
  v->Visit(&groups, "groups");
  v->Visit(&if_bias, "if_bias");
  VisitBlob(v, &weight, "weight");
  VisitBlob(v, &bias, "bias");
}

TensorExpandInfo::TensorExpandInfo() : LayerInfo(LAYER_TENSOR_EXPAND) { serializable_type_ = GetClassTypeName(); }
void TensorExpandInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  v->Visit(&new_shape, "new_shape");
}

Pad1dInfo::Pad1dInfo() : LayerInfo(LAYER_PAD1D) { serializable_type_ = GetClassTypeName(); }
void Pad1dInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  v->Visit(&padding_l, "padding_l");
  v->Visit(&padding_r, "padding_r");
  v->Visit(&padding_v, "padding_v");
}

Pad2dInfo::Pad2dInfo() : LayerInfo(LAYER_PAD2D) { serializable_type_ = GetClassTypeName(); }
void Pad2dInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  v->Visit(&padding_l, "padding_l");
  v->Visit(&padding_t, "padding_t");
  v->Visit(&padding_r, "padding_r");
  v->Visit(&padding_b, "padding_b");
  v->Visit(&padding_v, "padding_v");
}

GridSampleInfo::GridSampleInfo() : LayerInfo(LAYER_GRIDSAMPLE) { serializable_type_ = GetClassTypeName(); }
void GridSampleInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  v->Visit(&mode, "mode");
  v->Visit(&padding_mode, "padding_mode");
  v->Visit(&align_corners, "align_corners");
}

TensorArithmeticInfo::TensorArithmeticInfo() : LayerInfo(LAYER_TENSOR_ARITHMETIC) { serializable_type_ = GetClassTypeName(); }
void TensorArithmeticInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  v->Visit(&dim, "dim");
  v->Visit(&arith_type, "arith_type");
}

TensorSliceInfo::TensorSliceInfo() : LayerInfo(LAYER_TENSOR_SLICE) { serializable_type_ = GetClassTypeName(); }
void TensorSliceInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  v->Visit(&slice_dims, "slice_dims");
}

LayerPlaceholderInfo::LayerPlaceholderInfo() : LayerInfo(LAYER_PLACEHOLDER) { serializable_type_ = GetClassTypeName(); }
void LayerPlaceholderInfo::VisitAttr(const VisitorPtr& v) {
  LayerInfo::VisitAttr(v);
  v->Visit(&input_shapes, "input_shapes");
  v->Visit(&output_shape, "output_shape");
  v->Visit(&desc, "desc");
}

// ---------------------------------------------------------------- names and factories

std::string LayerTypeToString(ENUM_TYPE_LAYER type) {
  switch (type) {
    case LAYER_INPUT: return "Input";
    case LAYER_ACTIVATION: return "Activation";
    case LAYER_CONV2D: return "Conv2d";
    case LAYER_CONVTRANSPOSE2D: return "ConvTranspose2d";
    case LAYER_AVGPOOL2D: return "AvgPool2d";
    case LAYER_MAXPOOL2D: return "MaxPool2d";
    case LAYER_INSTANCENORM2D: return "InstanceNorm2d";
    case LAYER_BATCHNORM2D: return "BatchNorm2d";
    case LAYER_UPSAMPLE2D: return "Upsample2d";
    case LAYER_ELEMENTWISE: return "ElementWiseOperator";
    case LAYER_CONCATENATE: return "Concatenate";
    case LAYER_TENSOR_RESHAPE: return "TensorReshape";
    case LAYER_TENSOR_TRANSPOSE: return "TensorTranspose";
    case LAYER_TENSOR_SQUEEZE: return "TensorSqueeze";
    case LAYER_TENSOR_UNSQUEEZE: return "TensorUnSqueeze";
    case LAYER_FULLCONNECTION: return "FullConnection";
    case LAYER_PIXELSHUFFLE: return "PixelShuffle";
    case LAYER_TENSOR_GETITEM: return "TensorGetItem";
    case LAYER_BROADCAST: return "Blob";  // kept as it is: the name serves log lines only
    case LAYER_LSTM: return "LSTM";
    case LAYER_TENSOR_SLICE: return "TensorSlice";
    case LAYER_BLOB: return "Blob";
    default: return "UnKnown";
  }
}

namespace {

using LayerCreator = std::function<LayerInfoPtr()>;

template <typename T>
LayerCreator Make() {
  return [] { return std::make_shared<T>(); };
}

const std::unordered_map<std::uint16_t, LayerCreator>& CreatorsByCode() {
  static const auto* map = new std::unordered_map<std::uint16_t, LayerCreator>{
      {LAYER_INPUT, Make<InputInfo>()},
      {LAYER_ACTIVATION, Make<ActivationInfo>()},
      {LAYER_CONV2D, Make<Conv2dInfo>()},
      {LAYER_CONVTRANSPOSE2D, Make<ConvTranspose2dInfo>()},
      {LAYER_AVGPOOL2D, Make<AvgPool2dInfo>()},
      {LAYER_MAXPOOL2D, Make<MaxPool2dInfo>()},
      {LAYER_INSTANCENORM2D, Make<InstanceNorm2dInfo>()},
      {LAYER_BATCHNORM2D, Make<BatchNorm2dInfo>()},
      {LAYER_UPSAMPLE2D, Make<Upsample2dInfo>()},
      {LAYER_ELEMENTWISE, Make<ElementWiseOperatorInfo>()},
      {LAYER_CONCATENATE, Make<ConcatenateInfo>()},
      {LAYER_TENSOR_RESHAPE, Make<TensorReshapeInfo>()},
      {LAYER_TENSOR_TRANSPOSE, Make<TensorTransposeInfo>()},
      {LAYER_TENSOR_SQUEEZE, Make<TensorSqueezeInfo>()},
      {LAYER_TENSOR_UNSQUEEZE, Make<TensorUnSqueezeInfo>()},
      {LAYER_FULLCONNECTION, Make<FullConnectionInfo>()},
      {LAYER_PIXELSHUFFLE, Make<PixelShuffleInfo>()},
      {LAYER_TENSOR_GETITEM, Make<TensorGetItemInfo>()},
      {LAYER_SQFC_CONV2D, Make<SQFCConv2dInfo>()},
      {LAYER_SQFC_CONV2D_FOLDED_BN, Make<SQFCConv2dFoldedBNInfo>()},
      {LAYER_ADAPTIVE_AVGPOOL2D, Make<AdaptiveAvgPool2dInfo>()},
      {LAYER_ADAPTIVE_MAXPOOL2D, Make<AdaptiveMaxPool2dInfo>()},
      {LAYER_GEMM, Make<GemmInfo>()},
      {LAYER_BROADCAST, Make<BroadcastOperatorInfo>()},
      {LAYER_BATCHNORM1D, Make<BatchNorm1dInfo>()},
      {LAYER_CLIP, Make<ClipInfo>()},
      {LAYER_SOFTMAX, Make<SoftmaxInfo>()},
      {LAYER_RNNCELL, Make<RNNCellInfo>()},
      {LAYER_RNN, Make<RNNInfo>()},
      {LAYER_LSTMCELL, Make<LSTMCellInfo>()},
      {LAYER_LSTM, Make<LSTMInfo>()},
      {LAYER_GRUCELL, Make<GRUCellInfo>()},
      {LAYER_GRU, Make<GRUInfo>()},
      {LAYER_SPACE_TO_DEPTH, Make<SpaceToDepthInfo>()},
      {LAYER_CONV1D, Make<Conv1dInfo>()},
      {LAYER_TENSOR_EXPAND, Make<TensorExpandInfo>()},
      {LAYER_PAD1D, Make<Pad1dInfo>()},
      {LAYER_PAD2D, Make<Pad2dInfo>()},
      {LAYER_GRIDSAMPLE, Make<GridSampleInfo>()},
      {LAYER_TENSOR_ARITHMETIC, Make<TensorArithmeticInfo>()},
      {LAYER_TENSOR_SLICE, Make<TensorSliceInfo>()},
      {LAYER_PLACEHOLDER, Make<LayerPlaceholderInfo>()},
  };
  return *map;
}

const std::vector<std::pair<std::string, LayerCreator>>& CreatorsByName() {
  static const auto* list = new std::vector<std::pair<std::string, LayerCreator>>{
      {"InputInfo", Make<InputInfo>()},
      {"ActivationInfo", Make<ActivationInfo>()},
      {"Conv1dInfo", Make<Conv1dInfo>()},
      {"Conv2dInfo", Make<Conv2dInfo>()},
      {"ConvTranspose2dInfo", Make<ConvTranspose2dInfo>()},
      {"AvgPool2dInfo", Make<AvgPool2dInfo>()},
      {"AdaptiveAvgPool2dInfo", Make<AdaptiveAvgPool2dInfo>()},
      {"MaxPool2dInfo", Make<MaxPool2dInfo>()},
      {"InstanceNorm2dInfo", Make<InstanceNorm2dInfo>()},
      {"BatchNorm2dInfo", Make<BatchNorm2dInfo>()},
      {"Upsample2dInfo", Make<Upsample2dInfo>()},
      {"ElementWiseOperatorInfo", Make<ElementWiseOperatorInfo>()},
      {"ConcatenateInfo", Make<ConcatenateInfo>()},
      {"TensorReshapeInfo", Make<TensorReshapeInfo>()},
      {"TensorTransposeInfo", Make<TensorTransposeInfo>()},
      {"TensorSqueezeInfo", Make<TensorSqueezeInfo>()},
      {"TensorUnSqueezeInfo", Make<TensorUnSqueezeInfo>()},
      {"TensorGetItemInfo", Make<TensorGetItemInfo>()},
      {"TensorExpandInfo", Make<TensorExpandInfo>()},
      {"BroadcastOperatorInfo", Make<BroadcastOperatorInfo>()},
      {"ClipInfo", Make<ClipInfo>()},
      {"FullConnectionInfo", Make<FullConnectionInfo>()},
      {"GemmInfo", Make<GemmInfo>()},
      {"GridSampleInfo", Make<GridSampleInfo>()},
      {"PixelShuffleInfo", Make<PixelShuffleInfo>()},
      {"RNNCellInfo", Make<RNNCellInfo>()},
      {"RNNInfo", Make<RNNInfo>()},
      {"LSTMCellInfo", Make<LSTMCellInfo>()},
      {"LSTMInfo", Make<LSTMInfo>()},
      {"GRUCellInfo", Make<GRUCellInfo>()},
      {"GRUInfo", Make<GRUInfo>()},
      {"SoftmaxInfo", Make<SoftmaxInfo>()},
      {"TensorArithmeticInfo", Make<TensorArithmeticInfo>()},
  };
  return *list;
}

}  // namespace

LayerInfoPtr CreateLayerInfo(std::uint16_t code) {
  const auto& map = CreatorsByCode();
  auto it = map.find(code);
  return it == map.end() ? nullptr : it->second();
}

const std::vector<std::string>& LayerInfoFactoryNames() {
  static const auto* names = [] {
    auto* v = new std::vector<std::string>();
    for (const auto& entry : CreatorsByName()) v->push_back(entry.first);
    return v;
  }();
  return *names;
}

LayerInfoPtr LayerInfoFactory(const std::string& json) {
  JSONDocument document;
  ParseJsonObject(document, json.c_str(), "Layer description is not a JSON object.");
  auto it = document.FindMember("serializable_type");
  utility::Assert(it != document.MemberEnd() && it->value.IsString(),
                  "JSON member \"serializable_type\" is missing or not a string.");
  const std::string name(it->value.GetString(), it->value.GetStringLength());
  for (const auto& entry : CreatorsByName()) {
    if (entry.first == name) {
      LayerInfoPtr record = entry.second();
      record->VisitAttr(std::make_shared<JSONNodeGetter>(document, 0));
      return record;
    }
  }
  utility::AssertFailed("Unsupported Layer Type.");
}

std::vector<float> DecodeWeights(const std::string& blob) {
  // Decoded straight into the floats: no copy of the bytes in between.
  std::vector<float> values((Base64DecodeCapacity(blob.size()) + sizeof(float) - 1) / sizeof(float));
  const std::size_t bytes =
      Base64DecodeInto(blob.data(), blob.size(), reinterpret_cast<unsigned char*>(values.data()));
  values.resize(bytes / sizeof(float));
  return values;
}

std::string EncodeWeights(const float* values, size_t count) {
  return Base64Encode(reinterpret_cast<const unsigned char*>(values), count * sizeof(float));
}

std::string EncodeWeights(const std::vector<float>& values) { return EncodeWeights(values.data(), values.size()); }

void RegisterLayerRecords(SerializableRegistry& registry) {
  for (const auto& entry : CreatorsByCode()) {
    LayerInfoPtr record = entry.second();
    registry.Register(record->GetClassTypeName(), [creator = entry.second] { return SerializablePtr(creator()); },
                      false);
  }
  RegisterRecord<TensorDimemsionSamplingInfo>(registry);
}

}  // namespace runtime
}  // namespace tarn
