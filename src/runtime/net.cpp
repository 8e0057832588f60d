#include <algorithm>

#include "tarn/runtime/net.h"
#include "tarn/runtime/profiler.h"
#include "tarn/utility/log.h"
#include "tarn/utility/timer.h"

namespace tarn {
namespace runtime {
namespace {

using Tensors = std::vector<std::shared_ptr<Tensor>>;

// Raised inside Forward to abandon the pass; caught before returning.
struct ForwardFailure {};

void Fail(const char* format, const std::string& a, const std::string& b = std::string(), int code = 0) {
  utility::Log(utility::kLogError, format, a.c_str(), b.c_str(), code);
  throw ForwardFailure();
}

// Checks and runs one kernel on `inputs`; `reuse` tells the kernel whether it
// may overwrite their storage.
Tensors Run(const IKernel& kernel, const Tensors& inputs, const std::shared_ptr<Context>& ctx, const Layer& layer,
            bool reuse = false) {
  const std::int32_t valid = kernel.IsValidInput(inputs);
  if (valid != 0) Fail("Invalid input of layer <%s> for kernel <%s> (code %d).", layer.id, kernel.GetName(), valid);
  Tensors outputs;
  if (!kernel.SetOutputs(ctx, inputs, reuse, outputs)) outputs.clear();
  if (!kernel.Forward(inputs, outputs, ctx)) Fail("Forward of layer <%s> with kernel <%s> failed.", layer.id, kernel.GetName());
  if (outputs.empty() || std::any_of(outputs.begin(), outputs.end(), [](const auto& t) { return !t; })) {
    Fail("Kernel <%s> of layer <%s> gave no output.", kernel.GetName(), layer.id);
  }
  return outputs;
}

std::vector<TensorShape> Shapes(const Tensors& tensors) {
  std::vector<TensorShape> shapes;
  shapes.reserve(tensors.size());
  for (const auto& t : tensors) shapes.push_back(t->shape);
  return shapes;
}

// Passes every tensor through the converters, in kernel-id order.
Tensors Convert(const std::map<std::uint32_t, std::shared_ptr<IKernel>>& converters, const Tensors& tensors,
                const std::shared_ptr<Context>& ctx, const Layer& layer) {
  if (converters.empty()) return tensors;
  Tensors out;
  for (const auto& tensor : tensors) {
    Tensors current{tensor};
    for (const auto& entry : converters) {
      Tensors next;
      for (const auto& t : current) {
        Tensors converted = Run(*entry.second, Tensors{t}, ctx, layer);
        next.insert(next.end(), converted.begin(), converted.end());
      }
      current.swap(next);
    }
    out.insert(out.end(), current.begin(), current.end());
  }
  return out;
}

// Whether two tensors' storage overlaps (views share their input's storage).
bool Overlap(const Tensor& a, const Tensor& b) {
  const char* pa = static_cast<const char*>(a.Data());
  const char* pb = static_cast<const char*>(b.Data());
  if (!pa || !pb) return false;
  const std::size_t na = a.shape.Bytes(), nb = b.shape.Bytes();
  return pa < pb + (nb ? nb : 1) && pb < pa + (na ? na : 1);
}

}  // namespace

bool Net::MayOverwrite(std::uint32_t i, const std::vector<std::shared_ptr<Tensor>>& in,
                       const std::vector<std::vector<std::shared_ptr<Tensor>>>& outputs, const TensorMap& inputs,
                       const std::vector<std::uint32_t>& output_ids) const {
  auto protected_by = [&](const Tensor& t) {
    for (const auto& entry : inputs) {
      if (entry.second && Overlap(t, *entry.second)) return true;  // the caller's tensors
    }
    for (std::uint32_t q = 0; q < i; ++q) {
      if (outputs[q].empty()) continue;
      const bool needed = last_reader_[q] > static_cast<std::int64_t>(i) || type_names_[q] == "Input" ||
                          std::find(output_ids.begin(), output_ids.end(), q) != output_ids.end();
      if (!needed) continue;
      for (const auto& o : outputs[q]) {
        if (o && Overlap(t, *o)) return true;
      }
    }
    return false;
  };
  for (std::size_t a = 0; a < in.size(); ++a) {
    if (!in[a] || protected_by(*in[a])) return false;
    for (std::size_t b = a + 1; b < in.size(); ++b) {
      if (in[b] && Overlap(*in[a], *in[b])) return false;  // read twice by this layer
    }
  }
  return true;
}

std::int64_t Net::IndexOf(const std::string& id) const {
  auto it = index_of_.find(id);
  return it == index_of_.end() ? -1 : static_cast<std::int64_t>(it->second);
}

OutputMap Net::Forward(const TensorMap& inputs, const std::vector<std::uint32_t>& output_ids,
                       const std::shared_ptr<Context>& context, std::vector<float>* layer_times,
                       std::vector<float>* converter_times) const {
  const Profiler* no_profiler = nullptr;
  Profiler* profiler = context ? context->profiler.get() : nullptr;
  const bool timed = layer_times != nullptr || converter_times != nullptr || profiler != no_profiler;
  if (layer_times) layer_times->reserve(layer_times->size() + layers_.size());
  if (converter_times) converter_times->reserve(converter_times->size() + layers_.size());

  if (profiler) profiler->BeginPass();
  OutputMap result;
  std::vector<Tensors> outputs(layers_.size());
  auto wanted = [&output_ids](std::uint32_t i) {
    return std::find(output_ids.begin(), output_ids.end(), i) != output_ids.end();
  };
  try {
    for (std::uint32_t i = 0; i < layers_.size(); ++i) {
      const Layer& layer = *layers_[i];
      const bool is_input = type_names_[i] == "Input";
      const double start = timed ? utility::get_time_in_ms() : 0.0;
      double converter_ms = 0.0;
      auto timed_convert = [&](const std::map<std::uint32_t, std::shared_ptr<IKernel>>& converters, const Tensors& t) {
        if (!timed || converters.empty()) return Convert(converters, t, context, layer);
        const double s = utility::get_time_in_ms();
        Tensors r = Convert(converters, t, context, layer);
        converter_ms += utility::get_time_in_ms() - s;
        return r;
      };

      Tensors in;
      if (is_input) {
        auto it = inputs.find(i);
        if (it == inputs.end() || !it->second) Fail("No tensor was given for input layer <%s>.", layer.id);
        in.push_back(it->second);
      } else {
        for (std::int64_t p : producers_[i]) {
          if (p < 0 || outputs[p].empty()) Fail("Layer <%s> reads a layer that has not run before it.", layer.id);
          in.insert(in.end(), outputs[p].begin(), outputs[p].end());
        }
      }
      in = timed_convert(layer.input_converters, in);
      // A kernel may write over its inputs only where nobody needs them any more.
      Tensors out = is_input ? in : Run(*layer.kernel, in, context, layer, MayOverwrite(i, in, outputs, inputs, output_ids));
      const double flops = profiler && layer.layer_info ? LayerFlops(*layer.layer_info, Shapes(in), Shapes(out)) : 0.0;
      out = timed_convert(layer.output_converters, out);
      outputs[i] = std::move(out);

      // Every output whose last reader has now run is released, unless it was asked for.
      for (std::int64_t p : producers_[i]) {
        if (p >= 0 && last_reader_[p] == static_cast<std::int64_t>(i) && !wanted(static_cast<std::uint32_t>(p))) {
          outputs[p].clear();
        }
      }
      if (wanted(i)) result[i] = outputs[i];
      if (last_reader_[i] < 0 && !wanted(i)) outputs[i].clear();

      if (timed) {
        const double ms = utility::get_time_in_ms() - start;
        if (layer_times) layer_times->push_back(static_cast<float>(ms));
        if (converter_times) {
          if (layer.input_converters.empty() && layer.output_converters.empty()) {
            if (is_input) utility::Log(utility::kLogVerbose, "Input Layer without any converter do not need to profile gpu time.");
          } else {
            converter_times->push_back(static_cast<float>(converter_ms));
          }
        }
        if (profiler) {
          profiler->Record(i, layer.id, type_names_[i], layer.kernel ? layer.kernel->GetName() : std::string(), start,
                           ms, flops);
        }
      }
    }
  } catch (const ForwardFailure&) {
    if (profiler) profiler->EndPass(false);
    return OutputMap();
  } catch (const std::exception& e) {
    utility::Log(utility::kLogError, "Forward failed: %s", e.what());
    if (profiler) profiler->EndPass(false);
    return OutputMap();
  }
  if (profiler) profiler->EndPass(true);
  return result;
}

}  // namespace runtime
}  // namespace tarn
