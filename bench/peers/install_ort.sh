#!/usr/bin/env bash
# Installs ONNX Runtime for Node.js (the single-threaded peer of the network
# benchmarks) into ${1:-build/_peers} and prints that directory. The package's
# install script only fetches GPU extras from the network, so it is skipped:
# the CPU library ships inside the package.
set -euo pipefail
dir=${1:-build/_peers}
version=${TRN_ORT_VERSION:-1.30.0}
mkdir -p "$dir"
if [ ! -f "$dir/node_modules/onnxruntime-node/package.json" ] ||
   ! grep -q "\"version\": \"$version\"" "$dir/node_modules/onnxruntime-node/package.json"; then
  (cd "$dir" && npm install --silent --no-audit --no-fund --ignore-scripts "onnxruntime-node@$version" >/dev/null 2>&1)
fi
cd "$dir" && pwd
