#!/usr/bin/env bash
# The main job: install what is needed, build zvkit, then clean up the bundled noisy recording with the bundled
# trained denoise network, write the result, find the speech in it with the bundled VAD network, and print the
# SI-SDR improvement over the noisy input, the speech segments and the real-time factors.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"${JOBS:-2}" --target zvkit
noisy=models/example_noisy.wav
clean=models/example_clean.wav
out=build/example_denoised.wav
echo "== zvkit denoise $noisy $out   (against the clean speech of the mixture)"
./build/zvkit denoise "$noisy" "$out" --fused --quiet --reference "$clean"
echo
echo "== zvkit vad $out   (speech segments: start and end in seconds)"
./build/zvkit vad "$out" --quiet
echo
echo "The denoised recording is $out; play it with: aplay $out"
