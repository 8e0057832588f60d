#!/usr/bin/env bash
# Whole networks against PyTorch and ONNX Runtime, single-threaded, in one run:
# exports torchvision ResNet-18, MobileNetV2, SqueezeNet 1.1 (seeded weights),
# a 2-layer LSTM and GRU (64 -> 128, 32 steps), converts each with --tune and
# times the three runtimes in alternating rounds (median of >= 30 runs each).
# Usage: bench/run_networks.sh [build dir] [run_networks.py options]
set -euo pipefail
cd "$(dirname "$0")/.."
build_dir=${1:-build}
shift || true
bash scripts/deps.sh onnx
if [ ! -x "$build_dir/tools/trn_convert" ] || [ ! -x "$build_dir/bench/trn_net_runner" ]; then
  cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE=Release >/dev/null
  cmake --build "$build_dir" -j "$(nproc)" --target trn_convert trn_net_runner
fi
peers=$(bash bench/peers/install_ort.sh "$build_dir/_peers")
echo "OPENBLAS_CORETYPE=${OPENBLAS_CORETYPE:-unset}; load average $(cut -d" " -f1-3 /proc/loadavg)"
/usr/bin/python3 bench/run_networks.py "$build_dir" "$peers" "$@"
