// Tensor shapes and main-memory tensors.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "tarn/runtime/serializable.h"

namespace tarn {
namespace runtime {

class Device;
class DeviceCPU;

class TensorShape : public Serializable {
 public:
  // Codes are stored in model files and compared numerically.
  enum DataType : std::uint32_t {
    FLOAT32 = 0,
    FLOAT16 = 1,
    INT32 = 2,
    INT16 = 3,
    INT8 = 4,
    UINT32 = 5,
    UINT16 = 6,
    UINT8 = 7,
  };

  // The gaps in the numbering are never used.
  enum Layout : std::uint32_t {
    CHW = 0,
    HWC = 1,
    C4HW4 = 2,
    C8HW8 = 3,
    NCHW = 8,
    N4C4HW4n4c = 9,
    N8C8HW8n8c = 10,
    GNCHW = 11,
    GN4C4HW4n4c = 12,
    GN8C8HW8n8c = 16,
    NHWC = 22,
    FLEXIABLE = 23,
  };

  // Upper half: memory family; lower half: kind within it.
  enum Location : std::uint32_t {
    CPUObject = 0x10000,
    MainMemory = 0x10001,
    OpenGLObject = 0x20000,
    OpenGLSSBO = 0x20001,
    OpenGLUBO = 0x20002,
    OpenGLImage = 0x20004,
    MetalObject = 0x40000,
    MetalBuffer = 0x41001,
    MetalNoCopyBuffer = 0x41002,
    MetalImage = 0x42001,
    MetalTempBuffer = 0x41004,
    MetalTempImage = 0x42002,
  };

  class Extra : public Serializable {
   public:
    Extra() : step_size(0) {}
    explicit Extra(std::int16_t step) : step_size(step) {}
    void VisitAttr(const VisitorPtr& visitor) override;
    std::int16_t step_size;
  };

  TensorShape();
  TensorShape(std::vector<unsigned int> dims, DataType data_type, Layout layout, Location location,
              Extra extra = Extra());
  TensorShape(const TensorShape& other);
  TensorShape& operator=(const TensorShape& other);

  void VisitAttr(const VisitorPtr& visitor) override;

  // Bytes per element of data_type; an unknown code is a programming error.
  std::uint32_t ElementSize() const;
  // Product of the dims; a shape without dims holds one element.
  std::size_t ElementCount() const;
  // Saturates at SIZE_MAX like ElementCount.
  std::size_t Bytes() const;

  bool operator==(const TensorShape& other) const;
  bool operator!=(const TensorShape& other) const { return !(*this == other); }

  std::vector<unsigned int> dims;
  DataType data_type = FLOAT32;
  Layout layout = CHW;
  Location location = MainMemory;
  Extra extra;
};

// Names printed for the codes; a code without a name gives "".
std::string DataTypeName(std::uint32_t code);
std::string LayoutName(std::uint32_t code);
std::string LocationName(std::uint32_t code);

std::ostream& operator<<(std::ostream& os, const TensorShape& shape);

class Tensor : public std::enable_shared_from_this<Tensor> {
 public:
  explicit Tensor(const TensorShape& s) : shape(s) {}
  virtual ~Tensor();
  Tensor(const Tensor&) = delete;
  Tensor& operator=(const Tensor&) = delete;

  // First byte of the elements, for tensors whose storage the CPU can address.
  virtual void* Data() const = 0;

  TensorShape shape;
  // The device that created the tensor; null for tensors made outside a device.
  std::shared_ptr<Device> device;
};

using TensorPtr = std::shared_ptr<Tensor>;

// One contiguous block of main memory holding every element in layout order.
class TensorCPU : public Tensor {
 public:
  // `storage` owns (or, for external memory, merely points at) the block.
  TensorCPU(const TensorShape& shape, std::shared_ptr<void> storage, std::shared_ptr<Device> device);

  void* Data() const override { return storage_.get(); }
  template <typename T>
  T* DataAs() const {
    return static_cast<T*>(storage_.get());
  }

  // Functions that return a block to the device's fixed-size and dynamic pools.
  std::function<void(void*)> GetDeleter() const;
  std::function<void(void*)> GetDynamicDeleter() const;

  // Address of one element; the number of indices must equal the rank.
  void* Locate1D(std::uint32_t i0) const;
  void* Locate2D(std::uint32_t i0, std::uint32_t i1) const;
  void* Locate3D(std::uint32_t i0, std::uint32_t i1, std::uint32_t i2) const;
  void* Locate4D(std::uint32_t i0, std::uint32_t i1, std::uint32_t i2, std::uint32_t i3) const;
  void* Locate5D(std::uint32_t i0, std::uint32_t i1, std::uint32_t i2, std::uint32_t i3, std::uint32_t i4) const;
  void* Locate6D(std::uint32_t i0, std::uint32_t i1, std::uint32_t i2, std::uint32_t i3, std::uint32_t i4,
                 std::uint32_t i5) const;
  void* Locate7D(std::uint32_t i0, std::uint32_t i1, std::uint32_t i2, std::uint32_t i3, std::uint32_t i4,
                 std::uint32_t i5, std::uint32_t i6) const;

  // New dims over the same storage. One entry may be -1: it takes the extent
  // that keeps the element count. Other negative entries, or dims whose
  // product differs from the element count, fail the check.
  void Reshape(const std::vector<int>& dims);
  // Reorders the dims; the data moves so the tensor stays dense in the new order.
  void Permute(const std::vector<unsigned int>& axes);

  const std::shared_ptr<void>& storage() const { return storage_; }

 private:
  std::shared_ptr<void> storage_;
};

using TensorCPUPtr = std::shared_ptr<TensorCPU>;

// Dense transposition: out gets in's elements with out.dims[i] = in.dims[axes[i]].
// Both tensors must exist and out must be allocated for the permuted dims.
void TransposeTensor(const std::shared_ptr<TensorCPU>& in, const std::shared_ptr<TensorCPU>& out,
                     const std::vector<unsigned int>& axes);
// The same on raw memory: `dims` are the source dims.
void TransposeRaw(const void* src, void* dst, const std::vector<unsigned int>& dims,
                  const std::vector<unsigned int>& axes, std::uint32_t element_bytes);

}  // namespace runtime
}  // namespace tarn
