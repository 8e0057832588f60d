#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for SECONDS (default 600).
# Usage: scripts/fuzz.sh [seconds] [target...]   (targets: fuzz_records, fuzz_net, fuzz_bmp, fuzz_npy)
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh fuzz
seconds=${1:-600}
shift || true
build_dir=${TRN_BUILD_DIR:-build-fuzz}
cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ -DTRN_FUZZ=ON \
  -DTRN_BUILD_TESTS=OFF -DTRN_BUILD_BENCH=OFF -DTRN_BUILD_TOOLS=OFF >/dev/null
cmake --build "$build_dir" -j "$(nproc)"
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for exe in "$build_dir"/fuzz/fuzz_*; do targets+=("$(basename "$exe")"); done
fi
for t in "${targets[@]}"; do
  corpus="$build_dir/corpus/$t"
  mkdir -p "$corpus"
  seeds=()
  [ -d "fuzz/seeds/$t" ] && seeds=("fuzz/seeds/$t")
  echo "== $t for ${seconds}s"
  dict=()
  [ -f "fuzz/${t#fuzz_}.dict" ] && dict=(-dict="fuzz/${t#fuzz_}.dict")
  "$build_dir/fuzz/$t" "${dict[@]}" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="$build_dir/" "$corpus" "${seeds[@]}" 2>&1 | grep -E "^(stat::|#[0-9]+ +DONE|==|SUMMARY|Done)" || true
done
