#!/usr/bin/env bash
# The whole test suite: build everything (library, tests, benchmarks, tools),
# run the tests, install the package and build the example against it.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
build_dir=${TRN_BUILD_DIR:-build}
TRN_BUILD_DIR=$build_dir bash scripts/build.sh -DTRN_BUILD_TESTS=ON -DTRN_BUILD_BENCH=ON -DTRN_BUILD_TOOLS=ON
(cd "$build_dir" && ctest --output-on-failure -j "$(nproc)")

prefix="$PWD/$build_dir/_install"
rm -rf "$prefix" "$build_dir/example"
cmake --install "$build_dir" --prefix "$prefix" >/dev/null
cmake -S examples -B "$build_dir/example" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$build_dir/example" -j "$(nproc)"
"$build_dir/example/trn_example"
echo "all tests passed"
