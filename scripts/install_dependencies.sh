#!/usr/bin/env bash
# Installs the Debian 12 packages the project builds, tests and benchmarks with.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config binutils  # toolchain
  libgtest-dev libgmock-dev                              # unit tests
  libbenchmark-dev                                       # benchmarks
  libhwy-dev                                             # portable SIMD for the vector companions
  libspdlog-dev libfmt-dev                               # the logger library
  libcli11-dev libtiff-dev libpng-dev libraw-dev         # the oqa-demosaic tool
  libopencv-dev                                          # benchmark peer
  clang libclang-rt-dev clang-tidy cppcheck              # fuzzing and static analysis
  dpkg-dev file                                          # .deb packaging
)

missing=()
for package in "${packages[@]}"; do
  [[ $(dpkg-query -W -f='${Status}' "$package" 2>/dev/null) == "install ok installed" ]] ||
    missing+=("$package")
done
if ((${#missing[@]} == 0)); then
  exit 0
fi

sudo_if_needed=()
if [[ $(id -u) -ne 0 ]]; then
  sudo_if_needed=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_if_needed[@]}" apt-get update -qq
"${sudo_if_needed[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
