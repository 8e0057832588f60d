#!/usr/bin/env bash
# The NV21 1920x1080 -> 224x224 normalised float pipeline against OpenCV
# single-threaded, in one run. Usage: bench/run_image_bench.sh [build dir]
# (default build). Needs Debian's python3-opencv (scripts/deps.sh reference).
set -euo pipefail
cd "$(dirname "$0")/.."
build_dir=${1:-build}
bin="$build_dir/bench/bench_image_process"
if [ ! -x "$bin" ]; then
  echo "no $bin: build with -DTRN_BUILD_BENCH=ON first" >&2
  exit 2
fi
json=$(mktemp)
trap 'rm -f "$json"' EXIT
"$bin" --benchmark_filter=Pipeline --benchmark_repetitions=5 --benchmark_report_aggregates_only=true \
  --benchmark_format=json >"$json"
/usr/bin/python3 bench/opencv_image_pipeline.py --trn-json "$json"
