#!/usr/bin/env bash
# The main job: build the library and its tools, convert the shipped ONNX digit
# classifier (examples/digits/) for this processor and run it on the shipped
# handwritten digits. Extra arguments go to trn_digits (the number of runs).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
build_dir=${TRN_BUILD_DIR:-build}
TRN_BUILD_DIR=$build_dir bash scripts/build.sh -DTRN_BUILD_TESTS=OFF -DTRN_BUILD_BENCH=OFF
mkdir -p "$build_dir/digits"
"$build_dir/tools/trn_convert" examples/digits/digits.onnx "$build_dir/digits/digits.json" --plan
"$build_dir/tools/trn_digits" "$build_dir/digits/digits.json" examples/digits "$@"
