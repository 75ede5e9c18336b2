#!/usr/bin/env bash
# Builds and runs every test: the normal build (unit, API, audio host and packaging tests), then the unit, API
# and audio host library tests once more under AddressSanitizer and UndefinedBehaviorSanitizer, then the
# threaded API and stream tests (named Threads...) under ThreadSanitizer.
#   bash scripts/test.sh                 everything (what CI runs)
#   bash scripts/test.sh --quick         the normal build only
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh

jobs=${JOBS:-2}
quick=0
[ "${1:-}" = "--quick" ] && quick=1

echo "== build (RelWithDebInfo)"
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$jobs"
echo "== tests"
ctest --test-dir build -j"$jobs" --output-on-failure --timeout 600

if [ "$quick" = 0 ]; then
  echo "== build (AddressSanitizer + UndefinedBehaviorSanitizer)"
  cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DZELVA_SANITIZE=ON -DZELVA_BUILD_BENCH=OFF >/dev/null
  cmake --build build-asan -j"$jobs" --target zelva_unit_tests zelva_api_tests zelva_audio_tests zelva_stream_tests
  echo "== tests under sanitizers"
  export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:detect_stack_use_after_return=1
  export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
  ctest --test-dir build-asan -j"$jobs" --output-on-failure --timeout 900 -L 'unit|api|audio'

  echo "== build (ThreadSanitizer, API tests only)"
  cmake -S . -B build-tsan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZELVA_SANITIZE_THREAD=ON \
    -DZELVA_BUILD_BENCH=OFF >/dev/null
  cmake --build build-tsan -j"$jobs" --target zelva_api_tests zelva_stream_tests
  echo "== threaded tests under ThreadSanitizer"
  TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 build-tsan/tests/zelva_api_tests --gtest_filter='*.Threads*'
  TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 build-tsan/tests/zelva_stream_tests --gtest_filter='*.Threads*'
fi
