#!/usr/bin/env bash
# Installs the Debian packages the project needs, only those missing.
# Groups beyond the base set: fuzz (clang, libFuzzer), reference (PyTorch,
# OpenCV, NumPy for the reference-data scripts and peer benchmarks), onnx
# (ONNX, torchvision and scikit-learn for the converter's fixtures, the digits
# demo's training script, the network benchmark and the ONNX Runtime peers),
# vision (torchvision, for tools/make_resnet18_package.py).
set -euo pipefail

packages=(cmake make g++ libgtest-dev libgmock-dev libbenchmark-dev rapidjson-dev libopenblas-dev qemu-user
          libonnx-dev libprotobuf-dev)
for group in "$@"; do
  case "$group" in
    fuzz) packages+=(clang libclang-rt-14-dev) ;;
    reference) packages+=(python3-torch python3-opencv python3-numpy) ;;
    vision) packages+=(python3-torchvision) ;;
    timing) packages+=(hyperfine) ;;
    onnx) packages+=(python3-torch python3-torchvision python3-onnx python3-sklearn python3-numpy) ;;
    *) echo "unknown package group: $group" >&2; exit 2 ;;
  esac
done

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi
sudo=""
[ "$(id -u)" -eq 0 ] || sudo=sudo
echo "installing: ${missing[*]}"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
