#!/usr/bin/env bash
# Frame rates of oqademosaic on 16-bit Bayer frames and of bayer2rgb on 8-bit
# Bayer frames of the same size, in pipelines of the same shape:
#   videotestsrc ! grey caps ! capssetter (recast as Bayer) ! element ! fakesink
# and of the source alone. A solid-colour pattern keeps the source cheap; the
# elements' work does not depend on the pixel values. Runs alternate between
# the pipelines; each figure is the median of the repetitions. oqademosaic
# runs with one thread (its default) and with one per processor.
# Usage: bench/gstreamer/oqademosaic_vs_bayer2rgb.sh [build folder] [repetitions]
set -euo pipefail
build=${1:-build}
repetitions=${2:-7}
plugin_dir=$(cd "$build/lib/gstreamer-1.0" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
# The built plugin beside the system's, in a registry of its own.
export GST_PLUGIN_PATH=$plugin_dir GST_REGISTRY_1_0=$scratch/registry.bin

# run_seconds <frames> <width> <height> <grey format> <bayer format> [element]
run_seconds() {
  local frames=$1 width=$2 height=$3 grey=$4 bayer=$5 element=${6:-}
  local size="width=$width,height=$height,framerate=1000/1"
  gst-launch-1.0 videotestsrc pattern=solid-color num-buffers="$frames" \
    ! "video/x-raw,format=$grey,$size" \
    ! capssetter join=false replace=true caps="video/x-bayer,format=$bayer,$size" \
    ${element:+! $element} ! fakesink sync=false |
    awk -F'after ' '/Execution ended/ { split($2, t, ":"); print t[1] * 3600 + t[2] * 60 + t[3] }'
}

median() { sort -g | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }

printf '%-10s %-28s %10s %10s\n' frame pipeline "frames/s" "ms/frame"
declare -A labels=([oqa]="oqademosaic (16-bit)" [oqa_all]="oqademosaic n-threads=0"
  [bayer2rgb]="bayer2rgb (8-bit)" [source]="source alone (16-bit)")
declare -A seconds
for geometry in 1920x1080:600 3840x2160:150; do
  size=${geometry%%:*}
  width=${size%%x*}
  height=${size#*x}
  frames=${geometry##*:}
  rm -f "$scratch/oqa" "$scratch/oqa_all" "$scratch/bayer2rgb" "$scratch/source"
  for ((run = 0; run < repetitions; ++run)); do
    run_seconds "$frames" "$width" "$height" GRAY16_LE rggb16le oqademosaic >>"$scratch/oqa"
    run_seconds "$frames" "$width" "$height" GRAY16_LE rggb16le "oqademosaic n-threads=0" \
      >>"$scratch/oqa_all"
    run_seconds "$frames" "$width" "$height" GRAY8 rggb bayer2rgb >>"$scratch/bayer2rgb"
    run_seconds "$frames" "$width" "$height" GRAY16_LE rggb16le >>"$scratch/source"
  done
  for name in oqa oqa_all bayer2rgb source; do
    seconds[$name]=$(median <"$scratch/$name")
    awk -v f="$frames" -v s="${seconds[$name]}" -v g="$size" -v l="${labels[$name]}" \
      'BEGIN { printf "%-10s %-28s %10.0f %10.3f\n", g, l, f / s, s * 1000 / f }'
  done
  for name in oqa oqa_all; do
    awk -v a="${seconds[$name]}" -v b="${seconds[bayer2rgb]}" -v g="$size" -v l="${labels[$name]}" \
      'BEGIN { printf "%-10s %-28s %10.2fx\n", g, l " / bayer2rgb", b / a }'
  done
done
