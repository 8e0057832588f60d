// Register tiles of a compile-time width picked at run time: the steps keep T
// registers of output in flight and finish a row with one narrower tile.
#pragma once

#include <type_traits>

namespace tarn {
namespace kernel {

// Calls f(std::integral_constant<int, units>()) for 1 <= units <= T.
template <int T, class F>
inline void DispatchTile(int units, F&& f) {
  if constexpr (T > 1) {
    if (units < T) return DispatchTile<T - 1>(units, f);
  }
  f(std::integral_constant<int, T>());
}

}  // namespace kernel
}  // namespace tarn
