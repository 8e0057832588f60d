// Monotonic time for measuring durations, and a tick counter for short ones.
#pragma once

#include <cstdint>

namespace tarn {
namespace utility {

// Milliseconds on a monotonic clock; only differences are meaningful.
double get_time_in_ms();
// Microseconds on the same clock.
double get_time_in_us();

// A cheap counter of ticks for timing short stretches of code. It reads the
// processor's time-stamp counter when the processor declares it invariant
// (constant rate in every power state, synchronised across cores), and the
// steady clock in nanoseconds otherwise. The tick rate of the time-stamp
// counter is measured once, on first use, against the steady clock (about
// 10 ms). Ticks are comparable within one process only.
class TickCounter {
 public:
  static std::uint64_t Now();
  // Ticks per second (1e9 on the steady clock).
  static double TicksPerSecond();
  static double ToMs(std::uint64_t ticks) { return static_cast<double>(ticks) * 1e3 / TicksPerSecond(); }
  static double ToUs(std::uint64_t ticks) { return static_cast<double>(ticks) * 1e6 / TicksPerSecond(); }
  // True when Now() reads the time-stamp counter.
  static bool UsesTimeStampCounter();
};

}  // namespace utility
}  // namespace tarn
