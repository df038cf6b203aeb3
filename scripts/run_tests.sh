#!/usr/bin/env bash
# Builds the project and runs the whole test suite.
set -euo pipefail
cd "$(dirname "$0")/.."

jobs=$(nproc)
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release
cmake --build build -j "$jobs"
ctest --test-dir build --output-on-failure -j "$jobs"
