#include "tarn/utility/timer.h"

#include <cpuid.h>
#include <x86intrin.h>

#include <chrono>
#include <ctime>

namespace tarn {
namespace utility {

double get_time_in_ms() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) * 1e3 + static_cast<double>(ts.tv_nsec) * 1e-6;
}

double get_time_in_us() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) * 1e6 + static_cast<double>(ts.tv_nsec) * 1e-3;
}

namespace {

std::uint64_t SteadyNanoseconds() {
  return static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
          .count());
}

// CPUID 1 EDX bit 4 (a time-stamp counter exists) and CPUID 0x80000007 EDX
// bit 8 (it is invariant). Without the second, the rate may follow the
// processor's frequency and ticks would not convert to time.
bool HasInvariantTsc() {
  unsigned a, b, c, d;
  if (!__get_cpuid(1, &a, &b, &c, &d) || !(d & (1u << 4))) return false;
  if (!__get_cpuid(0x80000000u, &a, &b, &c, &d) || a < 0x80000007u) return false;
  if (!__get_cpuid(0x80000007u, &a, &b, &c, &d)) return false;
  return (d & (1u << 8)) != 0;
}

// One reading of both clocks, taken again until the two steady-clock reads
// around the counter lie within 20 us: a thread preempted between them (on a
// loaded machine, for milliseconds) would otherwise skew the rate.
void ReadBoth(std::uint64_t* steady_ns, std::uint64_t* ticks) {
  for (int attempt = 0;; ++attempt) {
    const std::uint64_t before = SteadyNanoseconds();
    const std::uint64_t t = __rdtsc();
    const std::uint64_t after = SteadyNanoseconds();
    if (after - before < 20000 || attempt == 100) {
      *steady_ns = before + (after - before) / 2;
      *ticks = t;
      return;
    }
  }
}

struct Calibration {
  Calibration() : tsc(HasInvariantTsc()), ticks_per_second(1e9) {
    if (!tsc) return;
    // Two readings 10 ms apart: an error of 20 us at either end is 0.4%, and
    // typically the reads are a few hundred nanoseconds apart.
    std::uint64_t s0, t0, s1, t1;
    ReadBoth(&s0, &t0);
    do {
      ReadBoth(&s1, &t1);
    } while (s1 - s0 < 10000000u);
    if (t1 <= t0) {
      tsc = false;
      return;
    }
    ticks_per_second = static_cast<double>(t1 - t0) * 1e9 / static_cast<double>(s1 - s0);
  }
  bool tsc;
  double ticks_per_second;
};

const Calibration& Calibrated() {
  static const Calibration calibration;
  return calibration;
}

}  // namespace

std::uint64_t TickCounter::Now() { return Calibrated().tsc ? __rdtsc() : SteadyNanoseconds(); }

double TickCounter::TicksPerSecond() { return Calibrated().ticks_per_second; }

bool TickCounter::UsesTimeStampCounter() { return Calibrated().tsc; }

}  // namespace utility
}  // namespace tarn
