#!/usr/bin/env bash
# Static analysis over the project's own sources: clang-tidy with the root
# .clang-tidy (through compile_commands.json) and cppcheck. Any finding fails
# the step.
# Environment: OQA_CI_BUILD_ROOT (default build-ci).
# Needs: clang-tidy (with run-clang-tidy), cppcheck.
set -euo pipefail
cd "$(dirname "$0")/../.."

root=${OQA_CI_BUILD_ROOT:-build-ci}
build=$root-lint
jobs=${OQA_CI_JOBS:-2}

# Only the compilation database is needed; nothing is generated into the
# source files, so nothing is built.
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_EXPORT_COMPILE_COMMANDS=ON \
  -DOQA_BUILD_TESTS=ON -DOQA_BUILD_BENCHMARKS=ON -DOQA_BUILD_TOOLS=ON >/dev/null

source_dirs='(Demosaic|vector|logger|common|tools|python|gstreamer|tests|bench|examples)'
repo=$(pwd)

printf '\n=== clang-tidy\n'
# GCC-only flags in the database mean nothing to clang; they are dropped
# rather than reported.
run-clang-tidy -quiet -p "$build" -j "$jobs" \
  -extra-arg=-Wno-unknown-warning-option -extra-arg=-Wno-unused-command-line-argument \
  "^$repo/$source_dirs/" 2>&1 | tee "$build/clang-tidy.log" | grep -v '^[0-9]* warnings\? generated' ||
  true
if grep -Eq '(warning|error): ' "$build/clang-tidy.log"; then
  echo "clang-tidy reported findings" >&2
  exit 1
fi

printf '\n=== cppcheck\n'
cppcheck --project="$build/compile_commands.json" -j "$jobs" --quiet --inline-suppr \
  --enable=warning,performance,portability --std=c++20 --error-exitcode=1 --library=googletest \
  --suppress=missingIncludeSystem --suppress='*:/usr/*' \
  -i"$repo/$root" -i"$repo/build" \
  --cppcheck-build-dir="$build" --template='{file}:{line}: {severity}: {message} [{id}]'
echo "lint clean"
