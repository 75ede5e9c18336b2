#!/usr/bin/env bash
# The main job: install what is needed, build, show what the library sees of this processor, then stream the
# bundled blocks through the bundled denoise network on both paths (hand-fused and generic) and print the
# time per block and the largest difference between the two paths' outputs.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"${JOBS:-2}" --target zvkit
./build/zvkit cpu
echo
model=models/denoise.zvmod
config=models/denoise.cfg.json
blocks=models/denoise_blocks.f32
./build/zvkit run --model $model --config $config --input $blocks --fused --output build/denoise_fused.f32
./build/zvkit run --model $model --config $config --input $blocks --output build/denoise_generic.f32 \
  --compare build/denoise_fused.f32
