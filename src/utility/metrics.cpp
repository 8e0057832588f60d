#include "tarn/utility/metrics.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace tarn {
namespace utility {

RunningStats::RunningStats(std::size_t window) : window_(std::max<std::size_t>(window, 1)) {}

void RunningStats::Add(double value) {
  window_[next_] = value;
  next_ = next_ + 1 == window_.size() ? 0 : next_ + 1;
  ++count_;
  if (count_ == 1) {
    min_ = max_ = value;
  } else {
    min_ = std::min(min_, value);
    max_ = std::max(max_, value);
  }
  sum_ += value;
  // Welford's update keeps the variance accurate over millions of samples.
  const double delta = value - mean_;
  mean_ += delta / static_cast<double>(count_);
  m2_ += delta * (value - mean_);
}

void RunningStats::Reset() {
  next_ = 0;
  count_ = 0;
  mean_ = m2_ = min_ = max_ = sum_ = 0;
}

double RunningStats::stddev() const {
  return count_ < 2 ? 0.0 : std::sqrt(std::max(0.0, m2_ / static_cast<double>(count_ - 1)));
}

namespace {

double Interpolated(const std::vector<double>& sorted, double p) {
  if (sorted.empty()) return 0.0;
  const double clamped = std::min(100.0, std::max(0.0, p));
  const double position = clamped / 100.0 * static_cast<double>(sorted.size() - 1);
  const std::size_t lo = static_cast<std::size_t>(position);
  if (lo + 1 >= sorted.size()) return sorted.back();
  const double fraction = position - static_cast<double>(lo);
  return sorted[lo] + fraction * (sorted[lo + 1] - sorted[lo]);
}

}  // namespace

double RunningStats::Percentile(double p) const {
  const std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(count_, window_.size()));
  std::vector<double> sorted(window_.begin(), window_.begin() + static_cast<std::ptrdiff_t>(n));
  std::sort(sorted.begin(), sorted.end());
  return Interpolated(sorted, p);
}

StatsSummary RunningStats::Summary() const {
  StatsSummary s;
  s.count = count_;
  s.mean = mean_;
  s.min = min_;
  s.max = max_;
  s.stddev = stddev();
  const std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(count_, window_.size()));
  std::vector<double> sorted(window_.begin(), window_.begin() + static_cast<std::ptrdiff_t>(n));
  std::sort(sorted.begin(), sorted.end());
  s.p50 = Interpolated(sorted, 50);
  s.p90 = Interpolated(sorted, 90);
  s.p99 = Interpolated(sorted, 99);
  s.window_samples = n;
  return s;
}

void ConcurrentRunningStats::Add(double value) {
  std::lock_guard<std::mutex> lock(mutex_);
  stats_.Add(value);
}

void ConcurrentRunningStats::Reset() {
  std::lock_guard<std::mutex> lock(mutex_);
  stats_.Reset();
}

std::uint64_t ConcurrentRunningStats::count() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return stats_.count();
}

double ConcurrentRunningStats::Percentile(double p) const {
  std::lock_guard<std::mutex> lock(mutex_);
  return stats_.Percentile(p);
}

StatsSummary ConcurrentRunningStats::Summary() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return stats_.Summary();
}

std::string FormatSummary(const StatsSummary& s, const char* unit) {
  char line[320];
  std::snprintf(line, sizeof line,
                "n %llu  mean %.4f %s  min %.4f  max %.4f  sd %.4f  p50 %.4f  p90 %.4f  p99 %.4f",
                static_cast<unsigned long long>(s.count), s.mean, unit, s.min, s.max, s.stddev, s.p50, s.p90, s.p99);
  return line;
}

}  // namespace utility
}  // namespace tarn
