// Per-layer profile of forward passes. A profiler set in the context given to
// Net::Forward receives, for every pass, the duration and start of every layer
// (converters included), and keeps per layer: kernel, calls, total, mean,
// minimum, maximum and, for convolutions and fully connected layers, the
// arithmetic rate; per pass: the wall time, and the timeline of the last
// complete pass. It exports a text table, JSON, and the trace-event JSON that
// Chrome's tracing (chrome://tracing) and Perfetto (ui.perfetto.dev) open.
//
// One profiler serves one net: layers are keyed by their index in the net.
// To profile one net of a package whose nets share a context, pass Forward a
// copy of the context that holds the profiler. Recording and reading take a
// mutex: the statistics can be read from another thread while a net runs, and
// a profiler shared by nets on several threads gives mixed numbers, not a crash.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tarn/runtime/tensor.h"
#include "tarn/utility/metrics.h"

namespace tarn {
namespace runtime {

class LayerInfo;

// Multiply-adds counted as two operations. Convolutions (1-D, 2-D and
// transposed 2-D) and fully connected layers; 0 for every other layer and for
// shapes that do not fit the record. Bias additions are not counted.
double LayerFlops(const LayerInfo& layer, const std::vector<TensorShape>& inputs,
                  const std::vector<TensorShape>& outputs);

class Profiler {
 public:
  struct LayerStats {
    std::uint32_t index = 0;
    std::string id;
    std::string type;
    std::string kernel;
    std::uint64_t calls = 0;
    double total_ms = 0;
    double min_ms = 0;
    double max_ms = 0;
    // Operations of the layer's last call; 0 when not counted for its type.
    double flops = 0;
    double mean_ms() const { return calls ? total_ms / static_cast<double>(calls) : 0.0; }
    // Arithmetic rate over all calls, or 0 when the type is not counted.
    double gflops_per_second() const {
      return flops > 0 && total_ms > 0 ? flops * static_cast<double>(calls) / (total_ms * 1e6) : 0.0;
    }
  };

  // One layer of the last complete pass, for the timeline.
  struct TraceEvent {
    std::uint32_t index = 0;
    double start_ms = 0;  // from the start of the pass
    double duration_ms = 0;
  };

  // Called by Net::Forward around each pass; a pass that fails ends with
  // complete = false: its layers stay in the statistics, not in the timeline.
  void BeginPass();
  void EndPass(bool complete);
  // One layer of the current pass: start on the get_time_in_ms clock.
  void Record(std::uint32_t index, const std::string& id, const std::string& type, const std::string& kernel,
              double start_ms, double ms, double flops = 0);

  // Per-layer statistics in index order.
  std::vector<LayerStats> Layers() const;
  // Sum of every layer's total: the time spent inside layers.
  double TotalMs() const;
  // Complete passes and their wall times (between BeginPass and EndPass).
  utility::StatsSummary Passes() const;
  std::vector<TraceEvent> LastPass() const;
  void Reset();

  // A table, one line per layer: index, id, type, kernel, calls, total, mean,
  // share of the layer total, GFLOP/s; then the totals.
  std::string Table() const;
  std::string ToJSON() const;
  // {"traceEvents": [...]}: one complete ("X") event per layer of the last
  // complete pass, times in microseconds from the start of the pass.
  std::string ToTraceJSON() const;

 private:
  mutable std::mutex mutex_;
  std::map<std::uint32_t, LayerStats> layers_;
  utility::RunningStats passes_;
  double pass_start_ms_ = -1;
  std::vector<TraceEvent> current_, last_;
};

}  // namespace runtime
}  // namespace tarn
