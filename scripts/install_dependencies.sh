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
  python3-dev pybind11-dev python3-numpy python3-pytest  # the Python package
  python3-dask python3-distributed python3-tifffile      # the Dask example
  python3-opencv                                         # Python benchmark peer
  libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev   # the GStreamer element
  gstreamer1.0-tools gstreamer1.0-plugins-base           # pipelines in its tests
  gstreamer1.0-plugins-good gstreamer1.0-plugins-bad     # bayer2rgb, the element's peer
  libcfitsio-dev                                         # FITS in oqa-demosaic
  dcraw                                                  # oqa-demosaic's benchmark peer
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
