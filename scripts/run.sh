#!/usr/bin/env bash
# The main job: install what is needed, build, and show what the library sees of this processor.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"${JOBS:-2}" --target zvkit
./build/zvkit cpu
