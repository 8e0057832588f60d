#include "tarn/kernel/tensor_helpers.h"

#include <algorithm>
#include <cstring>

#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {
namespace {

using runtime::TensorShape;

void CheckMainMemory(const TensorCPUPtr& t, TensorShape::DataType type, size_t rank, const char* what) {
  utility::Assert(t != nullptr && t->shape.location == TensorShape::MainMemory && t->shape.data_type == type &&
                      t->shape.dims.size() == rank,
                  "%s expects a main-memory tensor of rank %zu and type %u.", what, rank, static_cast<unsigned>(type));
}

// Copies planes of `rows` x `row_elems` elements into a bigger (or smaller)
// frame: destination rows start `top` rows down and `left` elements in.
template <typename T>
void CopyFramed(const T* src, T* dst, size_t planes, size_t src_rows, size_t src_row, size_t dst_rows,
                size_t dst_row, size_t copy_rows, size_t copy_row, size_t src_top, size_t src_left, size_t dst_top,
                size_t dst_left) {
  for (size_t p = 0; p < planes; ++p) {
    const T* s = src + p * src_rows * src_row;
    T* d = dst + p * dst_rows * dst_row;
    for (size_t y = 0; y < copy_rows; ++y) {
      std::memcpy(d + (dst_top + y) * dst_row + dst_left, s + (src_top + y) * src_row + src_left, copy_row * sizeof(T));
    }
  }
}

// Pads the H and W axes of a tensor whose dims are [planes, H, W] or [planes, H, W, lanes].
template <typename T>
TensorCPUPtr PadHW(const TensorCPUPtr& in, std::uint32_t left, std::uint32_t right, std::uint32_t top,
                   std::uint32_t bottom, T value, const DeviceCPUPtr& device, TensorShape::DataType type, size_t rank,
                   const char* what) {
  CheckMainMemory(in, type, rank, what);
  const auto& d = in->shape.dims;
  const size_t lanes = rank == 4 ? d[3] : 1;
  const size_t h = d[1], w = d[2] * lanes;
  const size_t oh = h + top + bottom, ow = (d[2] + left + right) * lanes;
  TensorShape shape = in->shape;
  shape.dims[1] = static_cast<unsigned>(oh);
  shape.dims[2] = d[2] + left + right;
  TensorCPUPtr out = device->CreateTensor(shape);
  T* o = out->DataAs<T>();
  const size_t planes = d[0];
  const T zero(0);
  if (std::memcmp(&value, &zero, sizeof(T)) == 0) {  // +0 only: -0.0f must keep its sign
    std::memset(o, 0, planes * oh * ow * sizeof(T));
  } else {
    std::fill(o, o + planes * oh * ow, value);
  }
  CopyFramed(in->DataAs<T>(), o, planes, h, w, oh, ow, h, w, 0, 0, top, left * lanes);
  return out;
}

template <typename T>
TensorCPUPtr CutHW(const TensorCPUPtr& in, std::uint32_t left, std::uint32_t right, std::uint32_t top,
                   std::uint32_t bottom, const DeviceCPUPtr& device, size_t rank, const char* what) {
  CheckMainMemory(in, TensorShape::FLOAT32, rank, what);
  const auto& d = in->shape.dims;
  utility::Assert(left + right <= d[2] && top + bottom <= d[1], "%s cuts more than the tensor holds.", what);
  const size_t lanes = rank == 4 ? d[3] : 1;
  const size_t oh = d[1] - top - bottom, ow = d[2] - left - right;
  TensorShape shape = in->shape;
  shape.dims[1] = static_cast<unsigned>(oh);
  shape.dims[2] = static_cast<unsigned>(ow);
  TensorCPUPtr out = device->CreateTensor(shape);
  CopyFramed(in->DataAs<T>(), out->DataAs<T>(), d[0], d[1], d[2] * lanes, oh, ow * lanes, oh, ow * lanes, top,
             left * lanes, 0, 0);
  return out;
}

size_t BiasCount(const TensorCPUPtr& bias) {
  utility::Assert(bias != nullptr && bias->shape.data_type == TensorShape::FLOAT32 && !bias->shape.dims.empty(),
                  "The bias must be a float tensor.");
  return bias->shape.dims.size() >= 2 ? size_t(bias->shape.dims[0]) * bias->shape.dims[1] : bias->shape.dims[0];
}

// Writes (or adds) bias[c] over every plane c of `planes` planes of `plane` elements.
template <bool kAdd>
void BiasPlanes(float* data, const float* bias, size_t planes, size_t plane) {
  for (size_t c = 0; c < planes; ++c) {
    float* p = data + c * plane;
    const float b = bias[c];
    size_t i = 0;
    for (; i + 8 <= plane; i += 8) {
      for (int k = 0; k < 8; ++k) p[i + k] = kAdd ? p[i + k] + b : b;
    }
    for (; i < plane; ++i) p[i] = kAdd ? p[i] + b : b;
  }
}

}  // namespace

TensorCPUPtr Padding_HW_MainMemory_CHW_Float_Fallback_M1(const TensorCPUPtr& input, std::uint32_t left,
                                                         std::uint32_t right, std::uint32_t top, std::uint32_t bottom,
                                                         float value, const DeviceCPUPtr& device) {
  return PadHW<float>(input, left, right, top, bottom, value, device, TensorShape::FLOAT32, 3,
                      "Padding_HW_MainMemory_CHW_Float_Fallback_M1");
}

TensorCPUPtr Padding_HW_MainMemory_CHW_Zero_Fallback_M1(const TensorCPUPtr& input, std::uint32_t left,
                                                        std::uint32_t right, std::uint32_t top, std::uint32_t bottom,
                                                        const DeviceCPUPtr& device) {
  return PadHW<float>(input, left, right, top, bottom, 0.0f, device, TensorShape::FLOAT32, 3,
                      "Padding_HW_MainMemory_CHW_Zero_Fallback_M1");
}

TensorCPUPtr ZeroPadding_HW_MainMemory_CHW_Int16_Fallback_M1(const TensorCPUPtr& input, std::uint32_t left,
                                                             std::uint32_t right, std::uint32_t top,
                                                             std::uint32_t bottom, const DeviceCPUPtr& device) {
  return PadHW<std::int16_t>(input, left, right, top, bottom, 0, device, TensorShape::INT16, 3,
                             "ZeroPadding_HW_MainMemory_CHW_Int16_Fallback_M1");
}

TensorCPUPtr ZeroPadding_HW_MainMemory_C4HW4_Int16_Fallback_M1(const TensorCPUPtr& input, std::uint32_t left,
                                                               std::uint32_t right, std::uint32_t top,
                                                               std::uint32_t bottom, const DeviceCPUPtr& device) {
  return PadHW<std::int16_t>(input, left, right, top, bottom, 0, device, TensorShape::INT16, 4,
                             "ZeroPadding_HW_MainMemory_C4HW4_Int16_Fallback_M1");
}

TensorCPUPtr ZeroPadding_HW_MainMemory_C8HW8_Int16_Fallback_M1(const TensorCPUPtr& input, std::uint32_t left,
                                                               std::uint32_t right, std::uint32_t top,
                                                               std::uint32_t bottom, const DeviceCPUPtr& device) {
  return PadHW<std::int16_t>(input, left, right, top, bottom, 0, device, TensorShape::INT16, 4,
                             "ZeroPadding_HW_MainMemory_C8HW8_Int16_Fallback_M1");
}

TensorCPUPtr Padding_L_MainMemory_CL_Float_Fallback_M1(const TensorCPUPtr& input, std::uint32_t front,
                                                       std::uint32_t back, float value, const DeviceCPUPtr& device) {
  CheckMainMemory(input, TensorShape::FLOAT32, 2, "Padding_L_MainMemory_CL_Float_Fallback_M1");
  const size_t c = input->shape.dims[0], l = input->shape.dims[1], ol = l + front + back;
  TensorShape shape = input->shape;
  shape.dims[1] = static_cast<unsigned>(ol);
  TensorCPUPtr out = device->CreateTensor(shape);
  float* o = out->DataAs<float>();
  std::fill(o, o + c * ol, value);
  CopyFramed(input->DataAs<float>(), o, 1, c, l, c, ol, c, l, 0, 0, 0, front);
  return out;
}

TensorCPUPtr Cutting_HW_MainMemory_Fallback_CHW_Float_M1(const TensorCPUPtr& input, std::uint32_t left,
                                                         std::uint32_t right, std::uint32_t top, std::uint32_t bottom,
                                                         const DeviceCPUPtr& device) {
  return CutHW<float>(input, left, right, top, bottom, device, 3, "Cutting_HW_MainMemory_Fallback_CHW_Float_M1");
}

TensorCPUPtr Cutting_HW_MainMemory_Fallback_C4HW4_Float_M1(const TensorCPUPtr& input, std::uint32_t left,
                                                           std::uint32_t right, std::uint32_t top,
                                                           std::uint32_t bottom, const DeviceCPUPtr& device) {
  return CutHW<float>(input, left, right, top, bottom, device, 4, "Cutting_HW_MainMemory_Fallback_C4HW4_Float_M1");
}

TensorCPUPtr Cutting_HW_MainMemory_Fallback_C8HW8_Float_M1(const TensorCPUPtr& input, std::uint32_t left,
                                                           std::uint32_t right, std::uint32_t top,
                                                           std::uint32_t bottom, const DeviceCPUPtr& device) {
  return CutHW<float>(input, left, right, top, bottom, device, 4, "Cutting_HW_MainMemory_Fallback_C8HW8_Float_M1");
}

void FillBias_MainMemory_CHW_Float_Fallback_M1(const TensorCPUPtr& inout, const TensorCPUPtr& bias) {
  CheckMainMemory(inout, TensorShape::FLOAT32, 3, "FillBias_MainMemory_CHW_Float_Fallback_M1");
  utility::Assert(BiasCount(bias) == inout->shape.dims[0],
                  "bias->shape.dims[0]* bias->shape.dims[1] == inout->shape.dims[0]");
  BiasPlanes<false>(inout->DataAs<float>(), bias->DataAs<float>(), inout->shape.dims[0],
                    size_t(inout->shape.dims[1]) * inout->shape.dims[2]);
}

void FillBias_MainMemory_CL_Float_Fallback_M1(const TensorCPUPtr& inout, const TensorCPUPtr& bias) {
  CheckMainMemory(inout, TensorShape::FLOAT32, 2, "FillBias_MainMemory_CL_Float_Fallback_M1");
  utility::Assert(BiasCount(bias) == inout->shape.dims[0], "The bias must hold one value per channel.");
  BiasPlanes<false>(inout->DataAs<float>(), bias->DataAs<float>(), inout->shape.dims[0], inout->shape.dims[1]);
}

void FillBias_MainMemory_Float_Fallback_M1(const TensorCPUPtr& inout, const TensorCPUPtr& bias) {
  CheckMainMemory(inout, TensorShape::FLOAT32, 1, "FillBias_MainMemory_Float_Fallback_M1");
  utility::Assert(BiasCount(bias) == inout->shape.dims[0], "The bias must hold one value per element.");
  std::memcpy(inout->Data(), bias->Data(), inout->shape.dims[0] * sizeof(float));
}

void ADDBias_MainMemory_CHW_Float_Fallback_M1(const TensorCPUPtr& inout, const TensorCPUPtr& bias) {
  CheckMainMemory(inout, TensorShape::FLOAT32, 3, "ADDBias_MainMemory_CHW_Float_Fallback_M1");
  utility::Assert(BiasCount(bias) == inout->shape.dims[0],
                  "bias->shape.dims[0]* bias->shape.dims[1] == inout->shape.dims[0]");
  BiasPlanes<true>(inout->DataAs<float>(), bias->DataAs<float>(), inout->shape.dims[0],
                   size_t(inout->shape.dims[1]) * inout->shape.dims[2]);
}

void FillZero_MainMemory_Float_Fallback_M1(const TensorCPUPtr& inout) {
  utility::Assert(inout != nullptr && inout->shape.data_type == TensorShape::FLOAT32, "FillZero expects a float tensor.");
  std::memset(inout->Data(), 0, inout->shape.Bytes());
}

void FillZero_MainMemory_Int16_Fallback_M1(const TensorCPUPtr& inout) {
  utility::Assert(inout != nullptr && inout->shape.data_type == TensorShape::INT16, "FillZero expects a 16-bit tensor.");
  std::memset(inout->Data(), 0, inout->shape.Bytes());
}

}  // namespace kernel
}  // namespace tarn
