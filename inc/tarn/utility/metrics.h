// Running statistics of timings (or any other samples).
//
// Count, mean, minimum, maximum and standard deviation cover every sample
// since construction or the last Reset; the percentiles cover the most recent
// `window` samples only, so that memory stays bounded on a service that runs
// for days. The standard deviation is the sample one (divisor n - 1; 0 below
// two samples). Percentiles interpolate linearly between the two nearest ranks
// of the sorted window (p = 50 of {1, 2, 3, 4} is 2.5), as NumPy's default does.
//
// RunningStats is for one thread at a time. ConcurrentRunningStats holds a
// mutex and may be fed and read from several threads at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace tarn {
namespace utility {

struct StatsSummary {
  std::uint64_t count = 0;
  double mean = 0, min = 0, max = 0, stddev = 0;
  double p50 = 0, p90 = 0, p99 = 0;
  // Samples the percentiles were taken over (at most the window).
  std::size_t window_samples = 0;
};

class RunningStats {
 public:
  static constexpr std::size_t kDefaultWindow = 1024;
  // The window's storage is taken here: Add never allocates.
  explicit RunningStats(std::size_t window = kDefaultWindow);

  void Add(double value);
  void Reset();

  std::uint64_t count() const { return count_; }
  double mean() const { return mean_; }
  double min() const { return min_; }
  double max() const { return max_; }
  double sum() const { return sum_; }
  double stddev() const;
  // p in [0, 100]; 0 when there are no samples.
  double Percentile(double p) const;
  StatsSummary Summary() const;
  std::size_t window() const { return window_.size(); }

 private:
  std::vector<double> window_;
  std::size_t next_ = 0;  // slot of the next sample in the ring
  std::uint64_t count_ = 0;
  double mean_ = 0, m2_ = 0, min_ = 0, max_ = 0, sum_ = 0;
};

class ConcurrentRunningStats {
 public:
  explicit ConcurrentRunningStats(std::size_t window = RunningStats::kDefaultWindow) : stats_(window) {}

  void Add(double value);
  void Reset();
  std::uint64_t count() const;
  double Percentile(double p) const;
  StatsSummary Summary() const;

 private:
  mutable std::mutex mutex_;
  RunningStats stats_;
};

// "n 10 mean 1.234 ms min ... max ... sd ... p50 ... p90 ... p99 ..." with
// values printed in the given unit.
std::string FormatSummary(const StatsSummary& s, const char* unit);

}  // namespace utility
}  // namespace tarn
