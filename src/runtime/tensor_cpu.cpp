#include <cstring>

#include "tarn/runtime/device_cpu.h"
#include "tarn/runtime/tensor.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace runtime {

TensorCPU::TensorCPU(const TensorShape& s, std::shared_ptr<void> storage, std::shared_ptr<Device> dev)
    : Tensor(s), storage_(std::move(storage)) {
  device = std::move(dev);
}

std::function<void(void*)> TensorCPU::GetDeleter() const {
  std::shared_ptr<MemoryPool> pool;
  if (auto cpu = std::dynamic_pointer_cast<DeviceCPU>(device)) pool = cpu->pool();
  return [pool](void* p) {
    if (pool) pool->Free(p);
  };
}

std::function<void(void*)> TensorCPU::GetDynamicDeleter() const {
  std::shared_ptr<MemoryPool> pool;
  if (auto cpu = std::dynamic_pointer_cast<DeviceCPU>(device)) pool = cpu->dynamic_pool();
  return [pool](void* p) {
    if (pool) pool->Free(p);
  };
}

#define TARN_LOCATE_BODY(N, ...)                                      \
  TARN_ASSERT(N == shape.dims.size());                                \
  const std::uint32_t idx[N] = {__VA_ARGS__};                         \
  std::size_t offset = 0;                                             \
  for (int k = 0; k < N; ++k) offset = offset * shape.dims[k] + idx[k]; \
  return static_cast<char*>(storage_.get()) + offset * shape.ElementSize();

void* TensorCPU::Locate1D(std::uint32_t i0) const { TARN_LOCATE_BODY(1, i0) }
void* TensorCPU::Locate2D(std::uint32_t i0, std::uint32_t i1) const { TARN_LOCATE_BODY(2, i0, i1) }
void* TensorCPU::Locate3D(std::uint32_t i0, std::uint32_t i1, std::uint32_t i2) const {
  TARN_LOCATE_BODY(3, i0, i1, i2)
}
void* TensorCPU::Locate4D(std::uint32_t i0, std::uint32_t i1, std::uint32_t i2, std::uint32_t i3) const {
  TARN_LOCATE_BODY(4, i0, i1, i2, i3)
}
void* TensorCPU::Locate5D(std::uint32_t i0, std::uint32_t i1, std::uint32_t i2, std::uint32_t i3,
                          std::uint32_t i4) const {
  TARN_LOCATE_BODY(5, i0, i1, i2, i3, i4)
}
void* TensorCPU::Locate6D(std::uint32_t i0, std::uint32_t i1, std::uint32_t i2, std::uint32_t i3, std::uint32_t i4,
                          std::uint32_t i5) const {
  TARN_LOCATE_BODY(6, i0, i1, i2, i3, i4, i5)
}
void* TensorCPU::Locate7D(std::uint32_t i0, std::uint32_t i1, std::uint32_t i2, std::uint32_t i3, std::uint32_t i4,
                          std::uint32_t i5, std::uint32_t i6) const {
  TARN_LOCATE_BODY(7, i0, i1, i2, i3, i4, i5, i6)
}

#undef TARN_LOCATE_BODY

void TensorCPU::Reshape(const std::vector<int>& new_dims) {
  const std::size_t count = shape.ElementCount();
  std::size_t known = 1;
  int inferred = -1;
  for (size_t i = 0; i < new_dims.size(); ++i) {
    if (new_dims[i] == -1) {
      utility::Assert(inferred < 0, "Reshape allows only one -1 entry.");
      inferred = static_cast<int>(i);
    } else {
      utility::Assert(new_dims[i] >= 0, "Reshape dims must not be negative.");
      known *= static_cast<std::size_t>(new_dims[i]);
    }
  }
  std::vector<unsigned int> dims(new_dims.begin(), new_dims.end());
  if (inferred >= 0) {
    utility::Assert(known != 0 && count % known == 0, "Reshape cannot infer the -1 entry.");
    dims[inferred] = static_cast<unsigned int>(count / known);
    known *= dims[inferred];
  }
  utility::Assert(known == count, "Reshape must keep the element count.");
  shape.dims = std::move(dims);
}

void TensorCPU::Permute(const std::vector<unsigned int>& axes) {
  utility::Assert(axes.size() == shape.dims.size(), "dimensions of shape must be equal to tranpose axes's.");
  TensorShape permuted = shape;
  for (size_t i = 0; i < axes.size(); ++i) {
    utility::Assert(axes[i] < shape.dims.size(), "tranpose axes must name each dimension once.");
    permuted.dims[i] = shape.dims[axes[i]];
  }
  std::shared_ptr<TensorCPU> out;
  if (auto cpu = std::dynamic_pointer_cast<DeviceCPU>(device)) {
    out = cpu->CreateTensor(permuted);
  } else {
    std::shared_ptr<void> block(::operator new(std::max<std::size_t>(permuted.Bytes(), 1)),
                                [](void* p) { ::operator delete(p); });
    out = std::make_shared<TensorCPU>(permuted, block, nullptr);
  }
  auto self = std::static_pointer_cast<TensorCPU>(shared_from_this());
  TransposeTensor(self, out, axes);
  shape = out->shape;
  storage_ = out->storage_;
}

void TransposeTensor(const std::shared_ptr<TensorCPU>& in, const std::shared_ptr<TensorCPU>& out,
                     const std::vector<unsigned int>& axes) {
  utility::Assert(in != nullptr, "Input shared pointer is null.");
  utility::Assert(out != nullptr, "Output shared pointer is null.");
  const std::uint32_t bytes = in->shape.ElementSize();
  utility::Assert(bytes >= 1, "bytes per element must be >= 1.");
  utility::Assert(axes.size() == in->shape.dims.size(), "dimensions of shape must be equal to tranpose axes's.");
  utility::Assert(out->shape.ElementCount() == in->shape.ElementCount() && out->shape.ElementSize() == bytes,
                  "Output tensor does not match the transposed input.");
  TransposeRaw(in->Data(), out->Data(), in->shape.dims, axes, bytes);
}

void TransposeRaw(const void* src, void* dst, const std::vector<unsigned int>& dims,
                  const std::vector<unsigned int>& axes, std::uint32_t element_bytes) {
  const size_t rank = dims.size();
  utility::Assert(element_bytes >= 1, "bytes per element must be >= 1.");
  utility::Assert(axes.size() == rank, "dimensions of shape must be equal to tranpose axes's.");
  std::vector<bool> seen(rank, false);
  for (unsigned a : axes) {
    utility::Assert(a < rank && !seen[a], "tranpose axes must name each dimension once.");
    seen[a] = true;
  }
  std::size_t count = 1;
  for (unsigned d : dims) count *= d;
  if (count == 0) return;
  // Source strides (in elements), then the stride of each output axis in the source.
  std::vector<std::size_t> src_stride(rank, 1);
  for (size_t i = rank; i-- > 1;) src_stride[i - 1] = src_stride[i] * dims[i];
  std::vector<std::size_t> out_dims(rank), step(rank);
  for (size_t i = 0; i < rank; ++i) {
    out_dims[i] = dims[axes[i]];
    step[i] = src_stride[axes[i]];
  }
  const char* s = static_cast<const char*>(src);
  char* d = static_cast<char*>(dst);
  if (rank == 0) {
    std::memcpy(d, s, element_bytes);
    return;
  }
  // Odometer over the output; the innermost axis is walked in a tight loop.
  std::vector<std::size_t> index(rank, 0);
  std::size_t src_offset = 0;
  const std::size_t inner = out_dims[rank - 1];
  const std::size_t inner_step = step[rank - 1] * element_bytes;
  for (std::size_t done = 0; done < count; done += inner) {
    const char* p = s + src_offset * element_bytes;
    switch (element_bytes) {
      case 4:
        for (std::size_t k = 0; k < inner; ++k, p += inner_step, d += 4) std::memcpy(d, p, 4);
        break;
      case 2:
        for (std::size_t k = 0; k < inner; ++k, p += inner_step, d += 2) std::memcpy(d, p, 2);
        break;
      default:
        for (std::size_t k = 0; k < inner; ++k, p += inner_step, d += element_bytes) std::memcpy(d, p, element_bytes);
    }
    for (size_t axis = rank - 1; axis-- > 0;) {
      src_offset += step[axis];
      if (++index[axis] < out_dims[axis]) break;
      src_offset -= step[axis] * out_dims[axis];
      index[axis] = 0;
    }
  }
}

}  // namespace runtime
}  // namespace tarn
