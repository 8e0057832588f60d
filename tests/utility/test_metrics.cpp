#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <thread>

#include "tarn/utility/metrics.h"
#include "tarn/utility/timer.h"

namespace tarn {
namespace {

using utility::ConcurrentRunningStats;
using utility::RunningStats;

TEST(RunningStats, HandComputedValues) {
  RunningStats s;
  for (double v : {4.0, 2.0, 9.0, 4.0, 5.0, 7.0, 4.0, 5.0}) s.Add(v);
  const utility::StatsSummary m = s.Summary();
  EXPECT_EQ(m.count, 8u);
  EXPECT_DOUBLE_EQ(m.mean, 5.0);
  EXPECT_DOUBLE_EQ(m.min, 2.0);
  EXPECT_DOUBLE_EQ(m.max, 9.0);
  // Squared deviations 32 over n - 1 = 7.
  EXPECT_DOUBLE_EQ(m.stddev, std::sqrt(32.0 / 7.0));
  // Sorted 2 4 4 4 5 5 7 9: rank 3.5 -> 4.5, rank 6.3 -> 7.6, rank 6.93 -> 8.86.
  EXPECT_DOUBLE_EQ(m.p50, 4.5);
  EXPECT_NEAR(m.p90, 7.6, 1e-12);
  EXPECT_NEAR(m.p99, 8.86, 1e-12);
  EXPECT_DOUBLE_EQ(s.Percentile(0), 2.0);
  EXPECT_DOUBLE_EQ(s.Percentile(100), 9.0);
  EXPECT_DOUBLE_EQ(s.sum(), 40.0);
}

TEST(RunningStats, EdgesOfTheSampleCount) {
  RunningStats s;
  EXPECT_EQ(s.Summary().count, 0u);
  EXPECT_EQ(s.Percentile(50), 0.0);
  s.Add(3.5);
  EXPECT_EQ(s.stddev(), 0.0) << "one sample has no spread";
  EXPECT_EQ(s.Summary().p99, 3.5);
  s.Reset();
  EXPECT_EQ(s.count(), 0u);
  s.Add(-1.0);
  EXPECT_EQ(s.min(), -1.0) << "the minimum restarts after Reset";
  EXPECT_EQ(s.max(), -1.0);
}

TEST(RunningStats, PercentilesCoverTheWindowTotalsEverything) {
  RunningStats s(4);
  for (int v = 1; v <= 10; ++v) s.Add(v);
  const utility::StatsSummary m = s.Summary();
  EXPECT_EQ(m.count, 10u);
  EXPECT_DOUBLE_EQ(m.mean, 5.5);
  EXPECT_EQ(m.min, 1.0);
  EXPECT_EQ(m.window_samples, 4u);
  EXPECT_DOUBLE_EQ(m.p50, 8.5) << "median of the last four: 7 8 9 10";
  EXPECT_DOUBLE_EQ(s.Percentile(0), 7.0);
}

TEST(RunningStats, VarianceStaysExactFarFromZero) {
  // A sum of squares would lose these differences in the rounding of 1e18.
  RunningStats s;
  for (double v : {1e9 + 1, 1e9 + 2, 1e9 + 3}) s.Add(v);
  EXPECT_DOUBLE_EQ(s.mean(), 1e9 + 2);
  EXPECT_NEAR(s.stddev(), 1.0, 1e-9);
}

TEST(ConcurrentRunningStats, TwoWritersAndAReader) {
  ConcurrentRunningStats s(256);
  const int n = 20000;
  auto writer = [&s, n](double value) {
    for (int i = 0; i < n; ++i) s.Add(value);
  };
  std::thread a(writer, 1.0), b(writer, 3.0);
  // Reading while the writers run must always see a consistent summary.
  for (int i = 0; i < 200; ++i) {
    const utility::StatsSummary m = s.Summary();
    if (m.count > 0) {
      EXPECT_GE(m.mean, 1.0);
      EXPECT_LE(m.mean, 3.0);
      EXPECT_LE(m.window_samples, 256u);
    }
  }
  a.join();
  b.join();
  const utility::StatsSummary m = s.Summary();
  EXPECT_EQ(m.count, 2u * n);
  EXPECT_NEAR(m.mean, 2.0, 1e-12);
  EXPECT_EQ(m.min, 1.0);
  EXPECT_EQ(m.max, 3.0);
  // Every sample lies 1 from the mean: sqrt(2n / (2n - 1)).
  EXPECT_NEAR(m.stddev, std::sqrt(2.0 * n / (2.0 * n - 1)), 1e-9);
}

TEST(TickCounter, ConvertsTicksToTime) {
  EXPECT_GT(utility::TickCounter::TicksPerSecond(), 0.0);
  const std::uint64_t a = utility::TickCounter::Now();
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  const std::uint64_t b = utility::TickCounter::Now();
  ASSERT_GT(b, a);
  // A sleep never ends early; the conversion may be off by its calibration
  // error only, and a loaded machine may add any delay.
  EXPECT_GE(utility::TickCounter::ToMs(b - a), 47.0);
  EXPECT_NEAR(utility::TickCounter::ToUs(b - a), utility::TickCounter::ToMs(b - a) * 1e3, 1e-6);
}

}  // namespace
}  // namespace tarn
