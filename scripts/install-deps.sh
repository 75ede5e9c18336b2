#!/usr/bin/env bash
# Installs the Debian packages that the build, the tests, the fuzzers and the benchmarks need.
# Idempotent: when everything is already there it prints nothing and touches nothing.
# NumPy and SciPy are for the quality measures' tests.
# Set WITH_TORCH=1 to add PyTorch, which only the fixture generators in tools/ need.
# Set WITH_QUALITY=1 to add what bench/quality/run.sh needs (NumPy, SciPy, Matplotlib, the WebRTC audio-processing
# library it compares with, Node and npm for the other peers).
set -euo pipefail

pkgs=(
  build-essential cmake ninja-build pkg-config git
  clang libclang-rt-14-dev
  rapidjson-dev libimath-dev libopenblas-serial-dev libsleef-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  libkissfft-dev libsndfile1-dev libsamplerate0-dev libfftw3-dev
  binutils
  python3-numpy python3-scipy
)
if [ "${WITH_TORCH:-0}" = 1 ]; then pkgs+=(python3-torch python3-numpy); fi
if [ "${WITH_QUALITY:-0}" = 1 ]; then
  pkgs+=(python3-numpy python3-scipy python3-matplotlib libwebrtc-audio-processing-dev)
  command -v node >/dev/null || pkgs+=(nodejs)
  command -v npm >/dev/null || pkgs+=(npm)
fi

missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO="sudo"
echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
