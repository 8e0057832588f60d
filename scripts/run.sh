#!/usr/bin/env bash
# The main job: build the library and run the demo.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
TRN_BUILD_DIR=${TRN_BUILD_DIR:-build} bash scripts/build.sh -DTRN_BUILD_TESTS=OFF -DTRN_BUILD_BENCH=OFF
"${TRN_BUILD_DIR:-build}/tools/trn_demo" "$@"
