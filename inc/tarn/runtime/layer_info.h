// Layer description records: one class per layer type. Their attribute keys and
// order define both the JSON and the binary form of model files.
//
// Weights ("weight", "bias", "scale", ...) are held as base64 text of packed
// little-endian floats; an empty string means no data. JSON stores the text,
// the binary format stores the floats as truncated half floats.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tarn/runtime/serializable.h"

namespace tarn {
namespace runtime {

// Layer-type codes, stored as unsigned 16-bit values.
enum ENUM_TYPE_LAYER : std::uint16_t {
  LAYER_INPUT = 0,
  LAYER_ACTIVATION = 1,
  LAYER_CONV2D = 2,
  LAYER_CONVTRANSPOSE2D = 3,
  LAYER_AVGPOOL2D = 6,
  LAYER_MAXPOOL2D = 7,
  LAYER_INSTANCENORM2D = 8,
  LAYER_BATCHNORM2D = 9,
  LAYER_UPSAMPLE2D = 10,
  LAYER_ELEMENTWISE = 11,
  LAYER_CONCATENATE = 12,
  LAYER_TENSOR_RESHAPE = 13,
  LAYER_TENSOR_TRANSPOSE = 14,
  LAYER_TENSOR_SQUEEZE = 15,
  LAYER_TENSOR_UNSQUEEZE = 16,
  LAYER_FULLCONNECTION = 17,
  LAYER_PIXELSHUFFLE = 21,
  LAYER_TENSOR_GETITEM = 22,
  LAYER_SQFC_CONV2D = 23,
  LAYER_SQFC_CONV2D_FOLDED_BN = 24,
  LAYER_ADAPTIVE_AVGPOOL2D = 26,
  LAYER_ADAPTIVE_MAXPOOL2D = 27,
  LAYER_GEMM = 28,
  LAYER_BROADCAST = 29,
  LAYER_BATCHNORM1D = 30,
  LAYER_CLIP = 31,
  LAYER_SOFTMAX = 32,
  LAYER_RNNCELL = 33,
  LAYER_RNN = 34,
  LAYER_LSTMCELL = 35,
  LAYER_LSTM = 36,
  LAYER_GRUCELL = 37,
  LAYER_GRU = 38,
  LAYER_SPACE_TO_DEPTH = 39,
  LAYER_CONV1D = 40,
  LAYER_TENSOR_EXPAND = 41,
  LAYER_PAD1D = 42,
  LAYER_PAD2D = 43,
  LAYER_GRIDSAMPLE = 44,
  LAYER_TENSOR_ARITHMETIC = 45,
  LAYER_TENSOR_SLICE = 46,
  LAYER_PLACEHOLDER = 252,
  LAYER_BLOB = 254,
  LAYER_UNKNOWN = 65535,
};

// Activation codes of "activation_type", as the configuration factories read them.
enum ActivationType : std::uint16_t {
  ACTIVATION_RELU = 0,
  ACTIVATION_RELU6 = 1,
  ACTIVATION_SIGMOID = 2,
  ACTIVATION_TANH = 3,
  ACTIVATION_LEAKY = 4,
  ACTIVATION_PRELU = 5,
  ACTIVATION_HSIGMOID = 6,
  ACTIVATION_HSWISH = 7,
  ACTIVATION_LINEAR = 8,
};

// Element-wise and broadcast operation codes of "op_type".
enum ElementWiseType : std::uint16_t {
  ELEMENTWISE_ADD = 0,
  ELEMENTWISE_SUB = 1,
  ELEMENTWISE_MUL = 2,
  ELEMENTWISE_DIV = 3,
  ELEMENTWISE_MAX = 4,
  ELEMENTWISE_MIN = 5,
};

// Name of a layer type for log messages ("UnKnown" for codes it does not list).
std::string LayerTypeToString(ENUM_TYPE_LAYER type);

class LayerInfo : public Serializable {
 public:
  LayerInfo();
  explicit LayerInfo(ENUM_TYPE_LAYER code);
  // Visits "serializable_type", then "type" (guarded: an older file without it
  // is logged at level 8 and reading goes on), "id", "input_ids", "read_count".
  void VisitAttr(const VisitorPtr& visitor) override;

  ENUM_TYPE_LAYER type;
  std::string id;
  std::vector<std::string> input_ids;
  std::uint16_t read_count = 0;

 protected:
  // A weight blob: base64 text in JSON, truncated half floats in the binary format.
  static void VisitBlob(const VisitorPtr& visitor, std::string* blob, const char* key);
  static void VisitBlobList(const VisitorPtr& visitor, std::vector<std::string>* blobs, const char* key);
  // The attributes shared by the two batch-normalisation records.
  template <typename Norm>
  static void VisitBatchNorm(const VisitorPtr& visitor, Norm& norm);
};

using LayerInfoPtr = std::shared_ptr<LayerInfo>;

class InputInfo : public LayerInfo {
 public:
  InputInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  std::uint16_t location = 0;
};

class ActivationInfo : public LayerInfo {
 public:
  ActivationInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  std::uint16_t activation_type = ACTIVATION_RELU;
  half_float::half activation_alpha{1.0f};
  half_float::half activation_beta{0.0f};
  std::int16_t num_parameters = 1;
  std::string weight;
};

// The shared attributes of the two-dimensional convolutions.
struct ConvGeometry {
  std::uint16_t in_channels = 0;
  std::uint16_t out_channels = 0;
  std::uint16_t kernel_x = 0;
  std::uint16_t kernel_y = 0;
  std::uint16_t stride_x = 1;
  std::uint16_t stride_y = 1;
  std::uint16_t dilation_x = 1;
  std::uint16_t dilation_y = 1;
  std::uint16_t groups = 1;
  bool if_bias = false;
  std::string weight;
  std::string bias;
};

// Paddings are unsigned here, unlike the other convolution records.
class Conv2dInfo : public LayerInfo, public ConvGeometry {
 public:
  Conv2dInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  std::uint16_t padding_l = 0, padding_t = 0, padding_r = 0, padding_b = 0;
};

class ConvTranspose2dInfo : public LayerInfo, public ConvGeometry {
 public:
  ConvTranspose2dInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  std::int16_t padding_l = 0, padding_t = 0, padding_r = 0, padding_b = 0;
};

class AvgPool2dInfo : public LayerInfo {
 public:
  AvgPool2dInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  std::uint16_t kernel_x = 0, kernel_y = 0;
  std::int16_t padding_l = 0, padding_t = 0, padding_r = 0, padding_b = 0;
  std::uint16_t stride_x = 1, stride_y = 1;
  bool ceil_mode = false;
  bool count_include_pad = true;
};

class MaxPool2dInfo : public LayerInfo {
 public:
  MaxPool2dInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  std::uint16_t kernel_x = 0, kernel_y = 0;
  std::int16_t padding_l = 0, padding_t = 0, padding_r = 0, padding_b = 0;
  std::uint16_t stride_x = 1, stride_y = 1;
  std::uint16_t dilation_x = 1, dilation_y = 1;
  bool ceil_mode = false;
};

// The statistics shared by the normalisation records.
struct NormStatistics {
  std::uint16_t num_features = 0;
  float eps = 1e-5f;
  float momentum = 0.1f;
  bool if_affine = true;
  bool if_track_running_stats = true;
  std::string scale;
  std::string shift;
};

class InstanceNorm2dInfo : public LayerInfo, public NormStatistics {
 public:
  InstanceNorm2dInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
};

class BatchNorm2dInfo : public LayerInfo, public NormStatistics {
 public:
  BatchNorm2dInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  std::string variance;
  std::string mean;
  std::int32_t num_batches_tracked = 0;
};

class BatchNorm1dInfo : public LayerInfo, public NormStatistics {
 public:
  BatchNorm1dInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  std::string variance;
  std::string mean;
  std::int32_t num_batches_tracked = 0;
};

// "scale_factor_y" is visited before "scale_factor_x"; the keys "unsample_type"
// and "align_corner" are spelled so in files.
class Upsample2dInfo : public LayerInfo {
 public:
  Upsample2dInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  float scale_factor_y = 1.0f;
  float scale_factor_x = 1.0f;
  bool align_corner = false;
  std::uint16_t unsample_type = 0;
};

class ElementWiseOperatorInfo : public LayerInfo {
 public:
  ElementWiseOperatorInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  std::uint16_t op_type = ELEMENTWISE_ADD;
};

class ConcatenateInfo : public LayerInfo {
 public:
  ConcatenateInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  std::uint16_t dim = 0;
};

class TensorReshapeInfo : public LayerInfo {
 public:
  TensorReshapeInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  std::vector<short> new_shape;
};

class TensorTransposeInfo : public LayerInfo {
 public:
  TensorTransposeInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  std::vector<unsigned short> axes;
};

class TensorSqueezeInfo : public LayerInfo {
 public:
  TensorSqueezeInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  std::int16_t dim = 0;
};

// Constructed with type 15, like TensorSqueezeInfo; the model's type list decides.
class TensorUnSqueezeInfo : public LayerInfo {
 public:
  TensorUnSqueezeInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  std::int16_t dim = 0;
};

class FullConnectionInfo : public LayerInfo {
 public:
  FullConnectionInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  std::uint16_t in_features = 0;
  std::uint16_t out_features = 0;
  bool if_bias = false;
  std::string weight;
  std::string bias;
};

class PixelShuffleInfo : public LayerInfo {
 public:
  PixelShuffleInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  float upscale_factor = 1.0f;
};

class TensorDimemsionSamplingInfo : public Serializable {
 public:
  void VisitAttr(const VisitorPtr& visitor) override;
  std::uint16_t sampling_type = 0;
  std::vector<short> data;
};

// Each sampling info is a nested record under the key "0", "1", ...
class TensorGetItemInfo : public LayerInfo {
 public:
  TensorGetItemInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  std::vector<TensorDimemsionSamplingInfo> sampling_infos;
};

// The quantised convolution: signed paddings and quantisation settings.
class SQFCConv2dInfo : public LayerInfo, public ConvGeometry {
 public:
  SQFCConv2dInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  std::int16_t padding_l = 0, padding_t = 0, padding_r = 0, padding_b = 0;
  std::uint16_t w_clip = 0, b_clip = 0, a_clip = 0;
  std::uint16_t w_qbit = 0, b_qbit = 0, a_qbit = 0;
};

class SQFCConv2dFoldedBNInfo : public SQFCConv2dInfo, public NormStatistics {
 public:
  SQFCConv2dFoldedBNInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  std::string variance;
  std::string mean;
};

class AdaptiveAvgPool2dInfo : public LayerInfo {
 public:
  AdaptiveAvgPool2dInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  std::vector<unsigned short> output_size;
};

class AdaptiveMaxPool2dInfo : public LayerInfo {
 public:
  AdaptiveMaxPool2dInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  std::vector<unsigned short> output_size;
};

class GemmInfo : public LayerInfo {
 public:
  GemmInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  bool trans_a = false;
  bool trans_b = false;
  float alpha = 1.0f;
  float beta = 1.0f;
};

class BroadcastOperatorInfo : public LayerInfo {
 public:
  BroadcastOperatorInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  std::uint16_t op_type = ELEMENTWISE_ADD;
};

class ClipInfo : public LayerInfo {
 public:
  ClipInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  half_float::half minimum_value{0.0f};
  half_float::half maximum_value{6.0f};
};

class SoftmaxInfo : public LayerInfo {
 public:
  SoftmaxInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  std::uint16_t dim = 0;
};

// Attributes shared by the recurrent cells.
struct RecurrentCell {
  std::uint16_t in_size = 0;
  std::uint16_t hidden_size = 0;
  bool if_bias = false;
  std::string weight_ih, weight_hh, bias_ih, bias_hh;
};

// Attributes shared by the stacked recurrent layers: one blob per layer.
struct RecurrentStack {
  std::uint16_t in_size = 0;
  std::uint16_t hidden_size = 0;
  bool if_bias = false;
  std::uint16_t num_layers = 1;
  bool bidirectional = false;
  std::uint16_t complex_rnn_type = 0;
  std::vector<std::string> weight_ih_forward, weight_hh_forward, bias_ih_forward, bias_hh_forward;
  std::vector<std::string> weight_ih_reverse, weight_hh_reverse, bias_ih_reverse, bias_hh_reverse;
};

// Only the plain RNN records carry an activation.
struct RecurrentActivation {
  std::uint16_t activation_type = ACTIVATION_TANH;
  half_float::half activation_alpha{1.0f};
  half_float::half activation_beta{0.0f};
};

class RNNCellInfo : public LayerInfo, public RecurrentCell, public RecurrentActivation {
 public:
  RNNCellInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
};

class RNNInfo : public LayerInfo, public RecurrentStack, public RecurrentActivation {
 public:
  RNNInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
};

class LSTMCellInfo : public LayerInfo, public RecurrentCell {
 public:
  LSTMCellInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
};

class LSTMInfo : public LayerInfo, public RecurrentStack {
 public:
  LSTMInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
};

class GRUCellInfo : public LayerInfo, public RecurrentCell {
 public:
  GRUCellInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
};

class GRUInfo : public LayerInfo, public RecurrentStack {
 public:
  GRUInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
};

class SpaceToDepthInfo : public LayerInfo {
 public:
  SpaceToDepthInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  float scale_factor = 1.0f;
};

class Conv1dInfo : public LayerInfo {
 public:
  Conv1dInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  std::uint16_t in_channels = 0, out_channels = 0, kernel_size = 0;
  std::uint16_t padding_f = 0, padding_b = 0;
  std::uint16_t stride = 1, dilation = 1, groups = 1;
  bool if_bias = false;
  std::string weight;
  std::string bias;
};

class TensorExpandInfo : public LayerInfo {
 public:
  TensorExpandInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  std::vector<short> new_shape;
};

class Pad1dInfo : public LayerInfo {
 public:
  Pad1dInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  std::int16_t padding_l = 0, padding_r = 0;
  float padding_v = 0.0f;
};

class Pad2dInfo : public LayerInfo {
 public:
  Pad2dInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  std::int16_t padding_l = 0, padding_t = 0, padding_r = 0, padding_b = 0;
  float padding_v = 0.0f;
};

class GridSampleInfo : public LayerInfo {
 public:
  GridSampleInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  std::uint16_t mode = 0;
  std::uint16_t padding_mode = 0;
  bool align_corners = false;
};

class TensorArithmeticInfo : public LayerInfo {
 public:
  TensorArithmeticInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  std::vector<short> dim;
  std::uint16_t arith_type = 0;
};

class TensorSliceInfo : public LayerInfo {
 public:
  TensorSliceInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  std::vector<short> slice_dims;
};

class LayerPlaceholderInfo : public LayerInfo {
 public:
  LayerPlaceholderInfo();
  void VisitAttr(const VisitorPtr& visitor) override;
  std::vector<std::vector<unsigned short>> input_shapes;
  std::vector<unsigned short> output_shape;
  std::string desc;
};

// The record class of a layer-type code, freshly constructed; null for codes
// without a class (4, 5, 18-20, 25, 254, 65535 and unlisted codes).
LayerInfoPtr CreateLayerInfo(std::uint16_t code);

// Builds a record from JSON text by its "serializable_type".
LayerInfoPtr LayerInfoFactory(const std::string& json);

// The class names LayerInfoFactory knows, in its order.
const std::vector<std::string>& LayerInfoFactoryNames();

// Decoded floats of a weight blob (trailing bytes beyond whole floats dropped).
std::vector<float> DecodeWeights(const std::string& blob);
// Base64 text of packed floats.
std::string EncodeWeights(const std::vector<float>& values);
std::string EncodeWeights(const float* values, size_t count);

}  // namespace runtime
}  // namespace tarn
