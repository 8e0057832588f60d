#!/usr/bin/env bash
# The recurrent members against PyTorch (one thread) and ONNX Runtime (one
# intra-op thread) on the same weights and input, in one session of the
# machine: bench/rnn_peers.py writes the seeded modules (weights for
# bench_rnn, ONNX models for ONNX Runtime) and times PyTorch, ort_bench.js
# times ONNX Runtime, and bench_rnn times every member, checks its output
# against PyTorch's and prints the table.
# Usage: bench/run_rnn_bench.sh [build dir] [bench_rnn flags...]   (default build/)
# Needs python3-torch and python3-onnx (scripts/deps.sh reference onnx), node
# and npm (bench/peers/install_ort.sh).
set -euo pipefail
cd "$(dirname "$0")/.."
build_dir=${1:-build}
shift || true
bin="$build_dir/bench/bench_rnn"
if [ ! -x "$bin" ]; then
  echo "no $bin: build with -DTRN_BUILD_BENCH=ON first" >&2
  exit 2
fi
work="$build_dir/_rnn_bench"
mkdir -p "$work"
peers=$(bash bench/peers/install_ort.sh "$build_dir/_peers")

/usr/bin/python3 bench/rnn_peers.py "$work" 2>/dev/null >"$work/torch.jsonl"
: >"$work/peers.txt"
while read -r line; do
  shape=$(/usr/bin/python3 -c 'import json,sys; print(json.loads(sys.argv[1])["shape"])' "$line")
  ort=$(NODE_PATH="$peers/node_modules" node bench/peers/ort_bench.js "$work/$shape.onnx" "$work/$shape.ort.json")
  # ONNX Runtime must compute what PyTorch computes: its y against PyTorch's.
  /usr/bin/python3 - "$line" "$ort" "$work/$shape.ort/y.bin" "$work/$shape.bin" >>"$work/peers.txt" <<'PY'
import json, sys
import numpy as np
torch, ort = json.loads(sys.argv[1]), json.loads(sys.argv[2])
y = np.fromfile(sys.argv[3], dtype="<f4")
want = np.fromfile(sys.argv[4], dtype="<f4")[-y.size:]
diff = float(np.abs(y - want).max())
if diff > 1e-4:
    sys.exit("ONNX Runtime's output differs from PyTorch's by %g on %s" % (diff, torch["shape"]))
print(torch["shape"], torch["torch_best_ms"], torch["torch_median_ms"], ort["min_ms"], ort["median_ms"])
PY
done <"$work/torch.jsonl"
"$bin" --rnn_data="$work" --rnn_peers="$work/peers.txt" "$@"
