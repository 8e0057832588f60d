#include "tarn/runtime/profiler.h"

// Before any RapidJSON header: it fixes the library's RapidJSON settings.
#include "tarn/runtime/json_binding.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cstdio>

#include "tarn/runtime/layer_info.h"
#include "tarn/utility/timer.h"

namespace tarn {
namespace runtime {

double LayerFlops(const LayerInfo& layer, const std::vector<TensorShape>& inputs,
                  const std::vector<TensorShape>& outputs) {
  // Height and width of a [C, H, W] or blocked [C/b, H, W, b] tensor.
  auto plane = [](const std::vector<TensorShape>& shapes) -> double {
    if (shapes.empty() || shapes[0].dims.size() < 3) return 0;
    return static_cast<double>(shapes[0].dims[1]) * shapes[0].dims[2];
  };
  if (auto c = dynamic_cast<const ConvGeometry*>(&layer)) {
    if (c->groups == 0) return 0;
    const double window = static_cast<double>(c->kernel_x) * c->kernel_y;
    if (layer.type == LAYER_CONVTRANSPOSE2D) {
      return 2.0 * c->in_channels * plane(inputs) * (c->out_channels / c->groups) * window;
    }
    return 2.0 * c->out_channels * plane(outputs) * (c->in_channels / c->groups) * window;
  }
  if (auto c = dynamic_cast<const Conv1dInfo*>(&layer)) {
    if (c->groups == 0 || outputs.empty() || outputs[0].dims.size() != 2) return 0;
    return 2.0 * c->out_channels * outputs[0].dims[1] * (c->in_channels / c->groups) * c->kernel_size;
  }
  if (auto f = dynamic_cast<const FullConnectionInfo*>(&layer)) {
    if (outputs.empty()) return 0;
    // Every output value is one dot product of in_features terms.
    return 2.0 * f->in_features * static_cast<double>(outputs[0].ElementCount());
  }
  return 0;
}

void Profiler::BeginPass() {
  const double now = utility::get_time_in_ms();
  std::lock_guard<std::mutex> lock(mutex_);
  current_.clear();
  pass_start_ms_ = now;
}

void Profiler::EndPass(bool complete) {
  const double now = utility::get_time_in_ms();
  std::lock_guard<std::mutex> lock(mutex_);
  if (complete && pass_start_ms_ >= 0) {
    passes_.Add(now - pass_start_ms_);
    last_.swap(current_);
  }
  current_.clear();
  pass_start_ms_ = -1;
}

void Profiler::Record(std::uint32_t index, const std::string& id, const std::string& type, const std::string& kernel,
                      double start_ms, double ms, double flops) {
  std::lock_guard<std::mutex> lock(mutex_);
  LayerStats& s = layers_[index];
  if (s.calls == 0) {
    s.index = index;
    s.id = id;
    s.type = type;
    s.kernel = kernel;
    s.min_ms = s.max_ms = ms;
  }
  s.min_ms = std::min(s.min_ms, ms);
  s.max_ms = std::max(s.max_ms, ms);
  s.total_ms += ms;
  s.flops = flops;
  ++s.calls;
  // Outside a pass (a caller recording by hand) the first layer starts the timeline.
  if (pass_start_ms_ < 0) pass_start_ms_ = start_ms;
  current_.push_back(TraceEvent{index, start_ms - pass_start_ms_, ms});
}

std::vector<Profiler::LayerStats> Profiler::Layers() const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::vector<LayerStats> out;
  out.reserve(layers_.size());
  for (const auto& entry : layers_) out.push_back(entry.second);
  return out;
}

double Profiler::TotalMs() const {
  double total = 0;
  for (const LayerStats& s : Layers()) total += s.total_ms;
  return total;
}

utility::StatsSummary Profiler::Passes() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return passes_.Summary();
}

std::vector<Profiler::TraceEvent> Profiler::LastPass() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return last_;
}

void Profiler::Reset() {
  std::lock_guard<std::mutex> lock(mutex_);
  layers_.clear();
  passes_.Reset();
  current_.clear();
  last_.clear();
  pass_start_ms_ = -1;
}

std::string Profiler::Table() const {
  const std::vector<LayerStats> layers = Layers();
  const utility::StatsSummary passes = Passes();
  double total = 0;
  size_t id_width = 5, type_width = 4, kernel_width = 6;
  for (const LayerStats& s : layers) {
    total += s.total_ms;
    id_width = std::max(id_width, s.id.size());
    type_width = std::max(type_width, s.type.size());
    kernel_width = std::max(kernel_width, s.kernel.size());
  }
  const int iw = static_cast<int>(id_width), tw = static_cast<int>(type_width), kw = static_cast<int>(kernel_width);
  std::string out;
  char line[1024];
  std::snprintf(line, sizeof line, "%5s  %-*s  %-*s  %-*s  %6s  %10s  %9s  %6s  %8s\n", "index", iw, "layer", tw, "type",
                kw, "kernel", "calls", "total ms", "mean ms", "share", "GFLOP/s");
  out += line;
  for (const LayerStats& s : layers) {
    char rate[32] = "-";
    if (s.gflops_per_second() > 0) std::snprintf(rate, sizeof rate, "%.2f", s.gflops_per_second());
    std::snprintf(line, sizeof line, "%5u  %-*s  %-*s  %-*s  %6llu  %10.3f  %9.4f  %5.1f%%  %8s\n", s.index, iw,
                  s.id.c_str(), tw, s.type.c_str(), kw, s.kernel.c_str(), static_cast<unsigned long long>(s.calls),
                  s.total_ms, s.mean_ms(), total > 0 ? 100.0 * s.total_ms / total : 0.0, rate);
    out += line;
  }
  std::snprintf(line, sizeof line, "layers total %.3f ms; %llu complete passes, wall time per pass: %s\n", total,
                static_cast<unsigned long long>(passes.count), utility::FormatSummary(passes, "ms").c_str());
  out += line;
  return out;
}

namespace {

using JsonWriter = rapidjson::Writer<rapidjson::StringBuffer>;

void WriteSummary(JsonWriter& w, const utility::StatsSummary& s) {
  w.StartObject();
  w.Key("count");
  w.Uint64(s.count);
  const std::pair<const char*, double> values[] = {{"mean", s.mean}, {"min", s.min}, {"max", s.max},
                                                   {"stddev", s.stddev}, {"p50", s.p50}, {"p90", s.p90},
                                                   {"p99", s.p99}};
  for (const auto& v : values) {
    w.Key(v.first);
    w.Double(v.second);
  }
  w.EndObject();
}

}  // namespace

std::string Profiler::ToJSON() const {
  const std::vector<LayerStats> layers = Layers();
  double total = 0;
  for (const LayerStats& s : layers) total += s.total_ms;
  rapidjson::StringBuffer buffer;
  JsonWriter w(buffer);
  w.StartObject();
  w.Key("pass_ms");
  WriteSummary(w, Passes());
  w.Key("layers_total_ms");
  w.Double(total);
  w.Key("layers");
  w.StartArray();
  for (const LayerStats& s : layers) {
    w.StartObject();
    w.Key("index");
    w.Uint(s.index);
    w.Key("id");
    w.String(s.id.c_str(), static_cast<rapidjson::SizeType>(s.id.size()));
    w.Key("type");
    w.String(s.type.c_str(), static_cast<rapidjson::SizeType>(s.type.size()));
    w.Key("kernel");
    w.String(s.kernel.c_str(), static_cast<rapidjson::SizeType>(s.kernel.size()));
    w.Key("calls");
    w.Uint64(s.calls);
    w.Key("total_ms");
    w.Double(s.total_ms);
    w.Key("mean_ms");
    w.Double(s.mean_ms());
    w.Key("min_ms");
    w.Double(s.min_ms);
    w.Key("max_ms");
    w.Double(s.max_ms);
    w.Key("share");
    w.Double(total > 0 ? s.total_ms / total : 0.0);
    w.Key("gflops_per_second");
    if (s.gflops_per_second() > 0) {
      w.Double(s.gflops_per_second());
    } else {
      w.Null();
    }
    w.EndObject();
  }
  w.EndArray();
  w.EndObject();
  return std::string(buffer.GetString(), buffer.GetSize());
}

std::string Profiler::ToTraceJSON() const {
  std::map<std::uint32_t, LayerStats> by_index;
  for (const LayerStats& s : Layers()) by_index[s.index] = s;
  rapidjson::StringBuffer buffer;
  JsonWriter w(buffer);
  w.StartObject();
  w.Key("traceEvents");
  w.StartArray();
  for (const TraceEvent& e : LastPass()) {
    const LayerStats& s = by_index[e.index];
    w.StartObject();
    w.Key("name");
    w.String(s.id.c_str(), static_cast<rapidjson::SizeType>(s.id.size()));
    w.Key("cat");
    w.String(s.type.c_str(), static_cast<rapidjson::SizeType>(s.type.size()));
    w.Key("ph");
    w.String("X");
    w.Key("ts");
    w.Double(e.start_ms * 1e3);
    w.Key("dur");
    w.Double(e.duration_ms * 1e3);
    w.Key("pid");
    w.Uint(1);
    w.Key("tid");
    w.Uint(1);
    w.Key("args");
    w.StartObject();
    w.Key("index");
    w.Uint(e.index);
    w.Key("kernel");
    w.String(s.kernel.c_str(), static_cast<rapidjson::SizeType>(s.kernel.size()));
    if (s.flops > 0) {
      w.Key("flops");
      w.Double(s.flops);
    }
    w.EndObject();
    w.EndObject();
  }
  w.EndArray();
  w.Key("displayTimeUnit");
  w.String("ms");
  w.EndObject();
  return std::string(buffer.GetString(), buffer.GetSize());
}

}  // namespace runtime
}  // namespace tarn
