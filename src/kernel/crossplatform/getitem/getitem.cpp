#include "kernel/crossplatform/getitem/getitem.h"

namespace tarn {
namespace kernel {

TensorGetItem_Fallback_M1::~TensorGetItem_Fallback_M1() = default;

namespace {

enum SamplingType : std::uint16_t { kWhole = 0, kIndex = 1, kRange = 2, kList = 3 };

}  // namespace

bool TensorGetItem_Fallback_M1::Accept(const runtime::LayerInfo& layer, std::string* why) const {
  const auto* info = dynamic_cast<const runtime::TensorGetItemInfo*>(&layer);
  if (!info) {
    *why = "not a TensorGetItemInfo record";
    return false;
  }
  for (std::size_t i = 0; i < info->sampling_infos.size(); ++i) {
    const auto& s = info->sampling_infos[i];
    const std::size_t n = s.data.size();
    const bool fits = s.sampling_type == kWhole || (s.sampling_type == kIndex && n == 1) ||
                      (s.sampling_type == kRange && n == 3 && s.data[2] >= 1) || (s.sampling_type == kList && n >= 1);
    if (!fits) {
      *why = "sampling info " + std::to_string(i) + " (type " + std::to_string(s.sampling_type) + ", data " +
             shape::DimsText(s.data) + ") is not a whole dim, an index, a range with a step >= 1 or an index list";
      return false;
    }
  }
  return true;
}

void TensorGetItem_Fallback_M1::Keep(const runtime::LayerInfo& layer) {
  samplings_.clear();
  for (const auto& s : static_cast<const runtime::TensorGetItemInfo&>(layer).sampling_infos) {
    samplings_.push_back({s.sampling_type, s.data});
  }
}

bool TensorGetItem_Fallback_M1::Plan(const runtime::TensorShape& input, ShapePlan* plan, std::string* why) const {
  const std::size_t rank = input.dims.size();
  if (samplings_.size() > rank) {
    *why = std::to_string(samplings_.size()) + " sampling infos for the input " + shape::DimsText(input.dims);
    return false;
  }
  const std::vector<std::size_t> strides = shape::DenseStrides(input.dims);
  plan->output = input;
  plan->output.dims.clear();
  plan->gather = functional::GatherPlan();
  for (std::size_t d = 0; d < rank; ++d) {
    const std::int64_t extent = input.dims[d];
    const Sampling whole{kWhole, {}};
    const Sampling& s = d < samplings_.size() ? samplings_[d] : whole;
    auto index = [&](std::int64_t i, std::size_t* out) {
      if (i < -extent || i >= extent) {
        *why = "index " + std::to_string(i) + " is outside dim " + std::to_string(d) + " of the input " +
               shape::DimsText(input.dims);
        return false;
      }
      *out = static_cast<std::size_t>(i < 0 ? i + extent : i);
      return true;
    };
    std::vector<std::size_t> table;
    switch (s.type) {
      case kIndex: {
        std::size_t i = 0;
        if (!index(s.data[0], &i)) return false;
        plan->gather.base += i * strides[d];
        continue;  // the dim is removed
      }
      case kRange: {
        std::uint64_t first = 0;
        const std::uint64_t n = shape::SliceRange(s.data[0], s.data[1], s.data[2], input.dims[d], &first);
        if (n == 0) {
          *why = "range " + shape::DimsText(s.data) + " selects nothing of dim " + std::to_string(d) +
                 " of the input " + shape::DimsText(input.dims);
          return false;
        }
        for (std::uint64_t k = 0; k < n; ++k) table.push_back((first + k * s.data[2]) * strides[d]);
        break;
      }
      case kList:
        for (short v : s.data) {
          std::size_t i = 0;
          if (!index(v, &i)) return false;
          table.push_back(i * strides[d]);
        }
        break;
      default:
        for (std::size_t k = 0; k < input.dims[d]; ++k) table.push_back(k * strides[d]);
    }
    plan->output.dims.push_back(static_cast<unsigned>(table.size()));
    plan->gather.offsets.push_back(std::move(table));
  }
  if (plan->output.dims.empty()) {
    plan->output.dims = {1};
    plan->gather.offsets.push_back({0});
  }
  return true;
}

}  // namespace kernel
}  // namespace tarn
