#!/usr/bin/env bash
# Builds the loader fuzz targets (clang, libFuzzer, AddressSanitizer + UndefinedBehaviorSanitizer) and runs
# each for a bounded time. Fails on any crash, leak, timeout or sanitizer report; the input that caused it
# is kept in fuzz-findings/.
#   bash scripts/fuzz.sh                       every target, FUZZ_SECONDS (default 60) each
#   FUZZ_SECONDS=900 FUZZ_TARGETS="fuzz_model_json fuzz_cfg_bin" bash scripts/fuzz.sh
#   FUZZ_NO_BUILD=1 ...                        run what is already built
#   FUZZ_RUNS=100000 ...                       a fixed number of inputs from a fixed seed instead of a time:
#                                              the same inputs on every run (what CI uses)
# Seeds: the committed fixtures (tests/data/models, tests/data/bad) and the inputs that once failed
# (tests/data/regressions); the growing corpus stays in
# build-fuzz/corpus/<target> between runs.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${FUZZ_SECONDS:-60}
targets=${FUZZ_TARGETS:-"fuzz_model_json fuzz_model_bin fuzz_cfg_json fuzz_cfg_bin"}
build=${FUZZ_BUILD_DIR:-build-fuzz}

if [ "${FUZZ_NO_BUILD:-0}" != 1 ]; then
  echo "== build fuzz targets ($build)"
  CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZELVA_FUZZ=ON \
    -DZELVA_BUILD_TESTS=OFF -DZELVA_BUILD_BENCH=OFF >/dev/null
  # shellcheck disable=SC2086
  cmake --build "$build" -j"${JOBS:-2}" --target $targets
fi

mkdir -p fuzz-findings
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1:suppressions=$PWD/fuzz/ubsan.supp
status=0
for target in $targets; do
  corpus="$build/corpus/$target"
  mkdir -p "$corpus"
  find tests/data/models tests/data/bad tests/data/regressions -type f ! -name MANIFEST -exec cp -n {} "$corpus/" \;
  dict=()
  case $target in *_json) dict=(-dict=fuzz/json.dict) ;; esac
  if [ -n "${FUZZ_RUNS:-}" ]; then echo "== $target for $FUZZ_RUNS inputs"; else echo "== $target for ${seconds}s"; fi
  budget=(-max_total_time="$seconds")
  [ -n "${FUZZ_RUNS:-}" ] && budget=(-runs="$FUZZ_RUNS" -seed=1)
  if ! "$build/fuzz/$target" "$corpus" "${dict[@]}" "${budget[@]}" -timeout=10 -rss_limit_mb=2048 \
      -max_len=65536 -print_final_stats=1 -artifact_prefix="fuzz-findings/$target-" \
      >"fuzz-findings/$target.log" 2>&1; then
    echo "!! $target failed; see fuzz-findings/$target.log"
    tail -n 60 "fuzz-findings/$target.log"
    status=1
  else
    grep -E "^stat::number_of_executed_units|^Done" "fuzz-findings/$target.log" || true
  fi
done
exit $status
