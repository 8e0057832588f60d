#include "tarn/runtime/profiler.h"

#include <algorithm>
#include <cstdio>

namespace tarn {
namespace runtime {

void Profiler::Record(std::uint32_t layer_index, const std::string& id, const std::string& type, double ms) {
  std::lock_guard<std::mutex> lock(mutex_);
  LayerStats& s = stats_[layer_index];
  if (s.runs == 0) {
    s.id = id;
    s.type = type;
    s.min_ms = s.max_ms = ms;
  }
  s.min_ms = std::min(s.min_ms, ms);
  s.max_ms = std::max(s.max_ms, ms);
  s.total_ms += ms;
  ++s.runs;
}

std::map<std::uint32_t, Profiler::LayerStats> Profiler::Stats() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return stats_;
}

void Profiler::Reset() {
  std::lock_guard<std::mutex> lock(mutex_);
  stats_.clear();
}

std::string Profiler::Report() const {
  std::string out;
  char line[256];
  for (const auto& entry : Stats()) {
    const LayerStats& s = entry.second;
    std::snprintf(line, sizeof line, "%4u %-24s %-20s runs %-6llu mean %9.4f ms  min %9.4f  max %9.4f\n",
                  entry.first, s.id.c_str(), s.type.c_str(), static_cast<unsigned long long>(s.runs), s.mean_ms(),
                  s.min_ms, s.max_ms);
    out += line;
  }
  return out;
}

}  // namespace runtime
}  // namespace tarn
