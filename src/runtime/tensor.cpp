#include "tarn/runtime/tensor.h"

#include "runtime/record_registration.h"

#include <cstdint>
#include <map>

#include "tarn/utility/log.h"

namespace tarn {
namespace runtime {
namespace {

const std::map<std::uint32_t, std::string>& DataTypeNames() {
  static const std::map<std::uint32_t, std::string> names = {
      {TensorShape::FLOAT32, "FLOAT32"}, {TensorShape::FLOAT16, "FLOAT16"}, {TensorShape::INT32, "INT32"},
      {TensorShape::INT16, "INT16"},     {TensorShape::INT8, "INT8"},       {TensorShape::UINT32, "UINT32"},
      {TensorShape::UINT16, "UINT16"},   {TensorShape::UINT8, "UINT8"},
  };
  return names;
}

const std::map<std::uint32_t, std::string>& LayoutNames() {
  static const std::map<std::uint32_t, std::string> names = {
      {TensorShape::CHW, "CHW"},
      {TensorShape::HWC, "HWC"},
      {TensorShape::C4HW4, "C4HW4"},
      {TensorShape::C8HW8, "C8HW8"},
      {TensorShape::NCHW, "NCHW"},
      {TensorShape::N4C4HW4n4c, "N4C4HW4n4c"},
      {TensorShape::N8C8HW8n8c, "N8C8HW8n8c"},
      {TensorShape::GNCHW, "GNCHW"},
      {TensorShape::GN4C4HW4n4c, "GN4C4HW4n4c"},
      {TensorShape::GN8C8HW8n8c, "GN8C8HW8n8c"},
      {TensorShape::NHWC, "NHWC"},
      {TensorShape::FLEXIABLE, "FLEXIABLE"},
  };
  return names;
}

const std::map<std::uint32_t, std::string>& LocationNames() {
  static const std::map<std::uint32_t, std::string> names = {
      {TensorShape::CPUObject, "CPUObject"},
      {TensorShape::MainMemory, "MainMemory"},
      {TensorShape::OpenGLObject, "OpenGLObject"},
      {TensorShape::OpenGLSSBO, "OpenGLSSBO"},
      {TensorShape::OpenGLUBO, "OpenGLUBO"},
      {TensorShape::OpenGLImage, "OpenGLImage"},
      {TensorShape::MetalObject, "MetalObject"},
      {TensorShape::MetalBuffer, "MetalBuffer"},
      {TensorShape::MetalNoCopyBuffer, "MetalNoCopyBuffer"},
      {TensorShape::MetalImage, "MetalImage"},
      {TensorShape::MetalTempBuffer, "MetalTempBuffer"},
      {TensorShape::MetalTempImage, "MetalTempImage"},
  };
  return names;
}

std::string Lookup(const std::map<std::uint32_t, std::string>& names, std::uint32_t code) {
  auto it = names.find(code);
  return it == names.end() ? std::string() : it->second;
}

}  // namespace

void TensorShape::Extra::VisitAttr(const VisitorPtr& visitor) {
  Serializable::VisitAttr(visitor);
  visitor->Visit(&step_size, "step_size");
}

TensorShape::TensorShape() = default;

TensorShape::TensorShape(std::vector<unsigned int> d, DataType t, Layout l, Location loc, Extra e)
    : dims(std::move(d)), data_type(t), layout(l), location(loc), extra(e) {}

TensorShape::TensorShape(const TensorShape& other)
    : Serializable(other),
      dims(other.dims),
      data_type(other.data_type),
      layout(other.layout),
      location(other.location),
      extra(other.extra) {}

TensorShape& TensorShape::operator=(const TensorShape& other) {
  Serializable::operator=(other);
  dims = other.dims;
  data_type = other.data_type;
  layout = other.layout;
  location = other.location;
  extra = other.extra;
  return *this;
}

void TensorShape::VisitAttr(const VisitorPtr& visitor) {
  Serializable::VisitAttr(visitor);
  visitor->Visit(&dims, "dims");
  // The codes travel as unsigned 32-bit values.
  unsigned int type = data_type, lay = layout, loc = location;
  visitor->Visit(&type, "data_type");
  visitor->Visit(&lay, "layout");
  visitor->Visit(&loc, "location");
  data_type = static_cast<DataType>(type);
  layout = static_cast<Layout>(lay);
  location = static_cast<Location>(loc);
  visitor->Visit(&extra, "extra");
}

uint32_t TensorShape::ElementSize() const {
  switch (data_type) {
    case FLOAT32:
    case INT32:
    case UINT32:
      return 4;
    case FLOAT16:
    case INT16:
    case UINT16:
      return 2;
    case INT8:
    case UINT8:
      return 1;
  }
  TARN_ASSERT(false && "Invalid type");
  return 0;
}

std::size_t TensorShape::ElementCount() const {
  // Saturates instead of wrapping, so a hostile shape asks for an impossible
  // allocation rather than a small one.
  std::size_t n = 1;
  for (unsigned int d : dims) {
    if (__builtin_mul_overflow(n, static_cast<std::size_t>(d), &n)) return SIZE_MAX;
  }
  return n;
}

std::size_t TensorShape::Bytes() const {
  std::size_t bytes;
  if (__builtin_mul_overflow(ElementCount(), static_cast<std::size_t>(ElementSize()), &bytes)) return SIZE_MAX;
  return bytes;
}

bool TensorShape::operator==(const TensorShape& other) const {
  return dims == other.dims && data_type == other.data_type && layout == other.layout &&
         location == other.location && extra.step_size == other.extra.step_size;
}

std::string DataTypeName(std::uint32_t code) { return Lookup(DataTypeNames(), code); }
std::string LayoutName(std::uint32_t code) { return Lookup(LayoutNames(), code); }
std::string LocationName(std::uint32_t code) { return Lookup(LocationNames(), code); }

std::ostream& operator<<(std::ostream& os, const TensorShape& shape) {
  os << "TensorShape: {\n\tShape: [";
  for (size_t i = 0; i < shape.dims.size(); ++i) {
    if (i) os << ", ";
    os << shape.dims[i];
  }
  os << "]\n";
  os << "\tLocation:" << LocationName(shape.location) << "\n";
  os << "\tDataType:" << DataTypeName(shape.data_type) << "\n";
  os << "\tLayout:" << LayoutName(shape.layout) << "\n";
  os << "}";
  return os;
}

Tensor::~Tensor() = default;

void RegisterTensorRecords(SerializableRegistry& registry) {
  RegisterRecord<TensorShape>(registry);
  RegisterRecord<TensorShape::Extra>(registry);
}

}  // namespace runtime
}  // namespace tarn
