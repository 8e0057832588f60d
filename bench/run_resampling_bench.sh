#!/usr/bin/env bash
# bench_resampling and its PyTorch peer back to back, so both columns come from
# one session of the machine. Usage: bench/run_resampling_bench.sh [build dir]
# (default build/); extra arguments after the build dir go to bench_resampling.
set -euo pipefail
cd "$(dirname "$0")/.."
build_dir=${1:-build}
shift || true
"$build_dir/bench/bench_resampling" "$@"
echo
/usr/bin/python3 bench/torch_resampling_peer.py
