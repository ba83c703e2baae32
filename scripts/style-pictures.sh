#!/usr/bin/env bash
# Makes the README's pictures of the styles again: a frame of the demo game
# with each style of libtessel.so, drawn by the layer through velour-style,
# into docs/styles/ (480x270, the copy path, at the time 1 s).
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build=${VELOUR_BUILD_DIR:-$top/build}
cmake -S "$top" -B "$build" -G Ninja >/dev/null
ninja -C "$build" velour-style tessel_sysroot
out=$top/docs/styles
mkdir -p "$out"
tool=$build/tools/velour-style/velour-style
"$tool" --demo --style null --output "$out/original.png"
for style in color_invert cel_shading hdr old_movie night_vision pixelize gamma_correction \
             edge_detection; do
  "$tool" --demo --style "$style" --path copy --output "$out/$style.png"
done
"$tool" --demo --style hdr --path copy --mode left_half --output "$out/hdr-left-half.png"
