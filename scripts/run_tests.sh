#!/usr/bin/env bash
# Builds the project and runs every test: the unit and integration suites,
# the whole suite again under AddressSanitizer + UndefinedBehaviorSanitizer,
# the concurrency tests under ThreadSanitizer, the fuzzers for a bounded time,
# install + package + example consumers, and the static analysers.
# OQA_QUICK=1 runs the first step only.
set -euo pipefail
cd "$(dirname "$0")/.."

jobs=$(nproc)
export OQA_CI_JOBS=$jobs
export OQA_CI_BUILD_ROOT=${OQA_CI_BUILD_ROOT:-build-ci}

step() { printf '\n===== %s (%s)\n' "$*" "$(date +%T)"; }

step "build and test"
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release
cmake --build build -j "$jobs"
ctest --test-dir build --output-on-failure -j "$jobs"
if [[ ${OQA_QUICK:-0} == 1 ]]; then
  exit 0
fi

step "sanitizers"
bash scripts/ci/sanitize.sh
step "fuzzing"
bash scripts/ci/fuzz.sh
step "install and package"
OQA_PACKAGE_BUILD=build bash scripts/ci/package.sh
step "static analysis"
bash scripts/ci/lint.sh
step "all tests passed"
