#!/usr/bin/env bash
# The whole test suite under AddressSanitizer with UndefinedBehaviorSanitizer,
# then the concurrency tests (the stress tests, the library's own concurrency
# scenarios and the element's threads) under ThreadSanitizer.
# Environment: OQA_CI_BUILD_ROOT (default build-ci) names the build folders;
# OQA_CI_TSAN_TESTS overrides the ctest regular expression of the TSan run.
# Needs: cmake, ninja-build, gcc (its libasan, libubsan and libtsan come with
# build-essential).
set -euo pipefail
cd "$(dirname "$0")/../.."

root=${OQA_CI_BUILD_ROOT:-build-ci}
jobs=${OQA_CI_JOBS:-2}
step() { printf '\n=== %s\n' "$*"; }

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1:detect_stack_use_after_return=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1
# Stress loops run shorter under the slow sanitizers.
export OQA_STRESS_SECONDS=${OQA_STRESS_SECONDS:-2}

step "AddressSanitizer + UndefinedBehaviorSanitizer: whole suite"
cmake -S . -B "$root-asan" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DOQA_SANITIZE=address,undefined -DOQA_BUILD_BENCHMARKS=OFF
cmake --build "$root-asan" -j "$jobs"
ctest --test-dir "$root-asan" --output-on-failure -j "$jobs" --timeout 600

step "ThreadSanitizer: concurrency tests"
cmake -S . -B "$root-tsan" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DOQA_SANITIZE=thread -DOQA_BUILD_BENCHMARKS=OFF -DOQA_BUILD_PYTHON=OFF
tsan_targets=(stress_tests)
# The list is captured first: grep -q on a live pipe would stop reading early
# and, under pipefail, fail the step when the build tool dies of SIGPIPE.
known_targets=$(cmake --build "$root-tsan" --target help)
for target in library_tests gstreamer_tests; do
  if grep -q "^$target:" <<<"$known_targets"; then
    tsan_targets+=("$target")
  fi
done
cmake --build "$root-tsan" -j "$jobs" --target "${tsan_targets[@]}"
tsan_tests=${OQA_CI_TSAN_TESTS:-'^(stress_|library_tests_complete$|gstreamer\.Element\.SharesFramesBetweenThreads$)'}
# One at a time: the instrumented threads already fill both cores.
ctest --test-dir "$root-tsan" --output-on-failure -R "$tsan_tests" --no-tests=error --timeout 600
