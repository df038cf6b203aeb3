#!/usr/bin/env bash
# Install, package and use the library as a customer would:
#   1. configure, build and `cmake --install` into a prefix;
#   2. build the example consumer against that prefix with find_package and
#      with pkg-config, and run it; run `oqa-demosaic --demo` from the prefix;
#   3. `cpack -G DEB`, `dpkg -i` the package, and repeat the consumer and the
#      demo against the system install; the package is removed afterwards
#      unless it was installed before.
# Environment: OQA_CI_BUILD_ROOT (default build-ci) names the build folders;
# OQA_PACKAGE_BUILD names an already configured build folder to install and
# package from (the test runner's own), instead of a fresh one;
# OQA_CI_SKIP_DPKG=1 stops after cpack (for machines that must stay clean).
# Needs: cmake, ninja-build, pkg-config, dpkg-dev, file (and root or sudo
# for dpkg).
set -euo pipefail
cd "$(dirname "$0")/../.."

root=${OQA_CI_BUILD_ROOT:-build-ci}
build=${OQA_PACKAGE_BUILD:-$root-package}
prefix=$PWD/$root-prefix
jobs=${OQA_CI_JOBS:-2}

step() { printf '\n=== %s\n' "$*"; }

if ! grep -q 'cmake/OqaInstall.cmake' CMakeLists.txt; then
  echo "CMakeLists.txt does not include cmake/OqaInstall.cmake: nothing would be installed" >&2
  exit 1
fi

step "configure and build ($build)"
if [[ -z ${OQA_PACKAGE_BUILD:-} ]]; then
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DOQA_BUILD_TESTS=OFF -DOQA_BUILD_BENCHMARKS=OFF -DOQA_BUILD_TOOLS=ON
fi
cmake --build "$build" -j "$jobs"

step "install into $prefix"
rm -rf "$prefix"
cmake --install "$build" --prefix "$prefix"
for file in include/ostrevan_oqa_demosaic.h \
  lib/libostrevan_oqa_demosaic.so \
  lib/libostrevan_oqa_demosaic_vector_sse.so \
  lib/libostrevan_oqa_demosaic_vector_avx2.so \
  lib/libostrevan_oqa_demosaic_vector_avx512.so \
  lib/libostrevan_oqa_logger.so \
  lib/cmake/ostrevan_oqa_demosaic/ostrevan_oqa_demosaicConfig.cmake \
  lib/pkgconfig/ostrevan_oqa_demosaic.pc \
  lib/python3/dist-packages/oqa_demosaic/__init__.py \
  bin/oqa-demosaic; do
  [[ -e $prefix/$file ]] || { echo "not installed: $file" >&2; exit 1; }
done

# The GStreamer plugin sits in the prefix's copy of GStreamer's plugin folder.
gst_plugins=$(pkg-config --variable=pluginsdir gstreamer-1.0)
gst_plugins=$prefix/${gst_plugins#"$(pkg-config --variable=prefix gstreamer-1.0)/"}
# gst_pipeline [env...]: one small pipeline through the element, after
# gst-inspect-1.0 has found it.
gst_pipeline() {
  env "$@" gst-inspect-1.0 oqademosaic >/dev/null
  env "$@" gst-launch-1.0 -q filesrc location=/dev/zero blocksize=6144 num-buffers=2 \
    ! video/x-bayer,format=rggb16le,width=64,height=48,framerate=1/1 ! oqademosaic ! fakesink
}

# consumers <label> <cmake prefix path or empty> <pkg-config path or empty>
consumers() {
  local label=$1 cmake_prefix=$2 pc_path=$3
  step "consumer with find_package ($label)"
  rm -rf "$root-consumer-$label"
  cmake -S examples/consumer -B "$root-consumer-$label" -DCMAKE_PREFIX_PATH="$cmake_prefix"
  cmake --build "$root-consumer-$label" -j "$jobs"
  ctest --test-dir "$root-consumer-$label" --output-on-failure
  step "consumer with pkg-config ($label)"
  rm -rf "$root-consumer-pc-$label"
  mkdir -p "$root-consumer-pc-$label"
  PKG_CONFIG_PATH=$pc_path make -C examples/consumer BUILD_DIR="$PWD/$root-consumer-pc-$label" run
}

# demo <oqa-demosaic>: runs the built-in demonstration in a scratch folder.
demo() {
  step "$1 --demo"
  local scratch
  scratch=$(mktemp -d)
  (cd "$scratch" && "$1" --demo demo.tiff && test -s demo.tiff)
  rm -rf "$scratch"
}

# python_import <package folder> [env argument...]: imports oqa_demosaic with
# Debian's interpreter from a scratch folder, checks that it came from the
# package folder and prints the levels it can use; writes no bytecode.
python_import() {
  local expected=$1 scratch
  shift
  scratch=$(mktemp -d)
  (cd "$scratch" && env -u LD_LIBRARY_PATH "$@" PYTHONDONTWRITEBYTECODE=1 /usr/bin/python3 -c '
import sys, oqa_demosaic
assert oqa_demosaic.__file__.startswith(sys.argv[1]), oqa_demosaic.__file__
print(oqa_demosaic.levels())' "$expected")
  rm -rf "$scratch"
}

consumers prefix "$prefix" "$prefix/lib/pkgconfig"
demo "$prefix/bin/oqa-demosaic"
step "import oqa_demosaic ($prefix)"
python_import "$prefix/lib/python3/dist-packages/oqa_demosaic/" \
  PYTHONPATH="$prefix/lib/python3/dist-packages"
step "oqademosaic ($prefix)"
gst_pipeline GST_REGISTRY_1_0="$PWD/$root-gst-registry.bin" GST_PLUGIN_PATH="$gst_plugins"
rm -f "$root-gst-registry.bin"

step "cpack -G DEB"
(cd "$build" && cpack -G DEB)
deb=$(ls "$build"/ostrevan-oqa-demosaic_*.deb)
dpkg-deb --info "$deb"
dpkg-deb --contents "$deb"

if [[ ${OQA_CI_SKIP_DPKG:-0} == 1 ]]; then
  exit 0
fi

sudo_if_needed=()
[[ $(id -u) -eq 0 ]] || sudo_if_needed=(sudo)
installed_before=0
[[ $(dpkg-query -W -f='${Status}' ostrevan-oqa-demosaic 2>/dev/null) == "install ok installed" ]] &&
  installed_before=1
step "dpkg -i $deb"
"${sudo_if_needed[@]}" dpkg -i "$deb"
remove_package() {
  if ((installed_before == 0)); then
    "${sudo_if_needed[@]}" dpkg -r ostrevan-oqa-demosaic >/dev/null
  fi
}
trap remove_package EXIT

consumers system "" ""
demo /usr/bin/oqa-demosaic
step "import oqa_demosaic (system)"
python_import /usr/lib/python3/dist-packages/oqa_demosaic/ -u PYTHONPATH
step "oqademosaic (system)"
gst_pipeline -u GST_PLUGIN_PATH -u GST_PLUGIN_PATH_1_0 -u GST_PLUGIN_SYSTEM_PATH \
  -u GST_PLUGIN_SYSTEM_PATH_1_0 -u GST_REGISTRY -u GST_REGISTRY_1_0
step "package checks passed"
