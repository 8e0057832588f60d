// Per-layer timing of forward passes, filled by Net::Forward when the
// context holds a profiler.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace tarn {
namespace runtime {

class Profiler {
 public:
  struct LayerStats {
    std::string id;
    std::string type;
    std::uint64_t runs = 0;
    double total_ms = 0;
    double min_ms = 0;
    double max_ms = 0;
    double mean_ms() const { return runs ? total_ms / static_cast<double>(runs) : 0.0; }
  };

  void Record(std::uint32_t layer_index, const std::string& id, const std::string& type, double ms);
  // Statistics by layer index.
  std::map<std::uint32_t, LayerStats> Stats() const;
  void Reset();
  // One line per layer: index, id, type, runs, mean, min and max in milliseconds.
  std::string Report() const;

 private:
  mutable std::mutex mutex_;
  std::map<std::uint32_t, LayerStats> stats_;
};

}  // namespace runtime
}  // namespace tarn
