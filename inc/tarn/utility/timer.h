// Monotonic time for measuring durations.
#pragma once

namespace tarn {
namespace utility {

// Milliseconds on a monotonic clock; only differences are meaningful.
double get_time_in_ms();
// Microseconds on the same clock.
double get_time_in_us();

}  // namespace utility
}  // namespace tarn
