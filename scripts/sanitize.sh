#!/usr/bin/env bash
# The test suite built with AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
build_dir=${TRN_BUILD_DIR:-build-asan}
# Line tables (-g1) are all a sanitizer report needs, and build much faster
# than full debug information.
cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -g1 -DNDEBUG" \
  -DTRN_SANITIZE=ON -DTRN_BUILD_BENCH=OFF >/dev/null
cmake --build "$build_dir" -j "$(nproc)"
# The library answers a failed allocation with std::bad_alloc; under ASan it must
# fail the same way instead of aborting.
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:allocator_may_return_null=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
(cd "$build_dir" && ctest --output-on-failure -j "$(nproc)")
echo "sanitizer run clean"
