#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (the whole project instrumented with
# AddressSanitizer and UndefinedBehaviorSanitizer) and runs each for a bounded
# time, starting from its seed corpus in fuzz/corpus/<target>/. Prints the
# executions of every target and their total; a crash leaves its input under
# <build>/artifacts/ and fails the step after all targets have run.
# Environment: OQA_CI_BUILD_ROOT (default build-ci); OQA_FUZZ_SECONDS per
# target (default 60).
# Needs: clang, libclang-rt-dev (libFuzzer and the sanitizer runtimes).
set -euo pipefail
cd "$(dirname "$0")/../.."

root=${OQA_CI_BUILD_ROOT:-build-ci}
build=$root-fuzz
seconds=${OQA_FUZZ_SECONDS:-60}
jobs=${OQA_CI_JOBS:-2}

cmake -S fuzz -B "$build" -G Ninja -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++
cmake --build "$build" -j "$jobs" --target oqa_fuzzers

build_path=$(cd "$build" && pwd)
# The capture logger first, then the instrumented companions.
export LD_LIBRARY_PATH=$build_path/counting_logger:$build_path/lib
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
mkdir -p "$build/artifacts"

total=0
failed=()
while read -r fuzzer; do
  [[ -n $fuzzer ]] || continue
  seeds=fuzz/corpus/$fuzzer
  work=$build/corpus/$fuzzer
  mkdir -p "$work"
  log=$build/$fuzzer.log
  printf '\n=== %s for %s s\n' "$fuzzer" "$seconds"
  status=0
  # New inputs go to the work corpus; the seeds in the repository stay as
  # they are. The timeout is a safety net if libFuzzer itself hangs.
  timeout $((seconds + 120)) "$build/bin/$fuzzer" "$work" "$seeds" \
    -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -max_len=65536 \
    -print_final_stats=1 -artifact_prefix="$build/artifacts/$fuzzer-" >"$log" 2>&1 || status=$?
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  runs=${runs:-0}
  total=$((total + runs))
  if ((status != 0)); then
    failed+=("$fuzzer")
    grep -m 10 -E 'runtime error|ERROR: |FAILED|SUMMARY' "$log" || tail -n 40 "$log"
  fi
  printf '%s: %s executions, %s\n' "$fuzzer" "$runs" "$( ((status == 0)) && echo ok || echo FAILED)"
done <"$build/fuzzers.txt"

printf '\nfuzzing: %s executions in total\n' "$total"
if ((${#failed[@]} > 0)); then
  echo "crashes in: ${failed[*]} (inputs under $build/artifacts)" >&2
  exit 1
fi
