#!/usr/bin/env bash
# Makes the README's pictures of the styles again: a frame of the demo game
# with each style of libtessel.so, drawn by the layer through velour-style,
# into docs/styles/ (480x270, the copy path, at the time 1 s). Then the style
# in a game: the demo run directly and run through the layer as game 1 in
# play with color_invert, the same frame of each side by side
# (docs/styles/in-game.png): the style covers the scene, the HUD is untouched.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build=${VELOUR_BUILD_DIR:-$top/build}
cmake -S "$top" -B "$build" -G Ninja >/dev/null
ninja -C "$build"
out=$top/docs/styles
mkdir -p "$out"
tool=$build/tools/velour-style/velour-style
"$tool" --demo --style null --output "$out/original.png"
for style in color_invert cel_shading hdr old_movie night_vision pixelize gamma_correction \
             edge_detection; do
  "$tool" --demo --style "$style" --path copy --output "$out/$style.png"
done
"$tool" --demo --style hdr --path copy --mode left_half --output "$out/hdr-left-half.png"

# Frame 40 of play, with the shooter's HUD too, by each run.
shots=$(mktemp -d /tmp/velour-in-game-XXXXXX)
trap 'rm -rf "$shots"' EXIT
demo=(--script play:40 --shooter subdata --size 480x270 --shot-every 40 --quiet)
"$build/tools/velour-demo/velour-demo" "${demo[@]}" --screenshots "$shots/direct" >/dev/null
"$build/tools/velour-run/velour-run" --package com.velour.pubg --mode 0 --effect color_invert -- \
  "$build/tools/velour-demo/velour-demo" "${demo[@]}" --screenshots "$shots/layer" >/dev/null
if cmp -s "$shots/direct/frame-00040.png" "$shots/layer/frame-00040.png"; then
  echo "style-pictures.sh: the frame through the layer has no style" >&2
  exit 1
fi
# Debian's own Python, which has python3-pil.
/usr/bin/python3 - "$shots/direct/frame-00040.png" "$shots/layer/frame-00040.png" \
  "$out/in-game.png" <<'PY'
import sys
from PIL import Image, ImageDraw

direct, layer = (Image.open(p).convert("RGB") for p in sys.argv[1:3])
gap, band = 6, 16
w, h = direct.size
picture = Image.new("RGB", (2 * w + gap, h + band), (255, 255, 255))
picture.paste(direct, (0, band))
picture.paste(layer, (w + gap, band))
draw = ImageDraw.Draw(picture)
draw.text((4, 2), "the game as it draws itself", fill=(0, 0, 0))
draw.text((w + gap + 4, 2), "through the layer: game 1 in play, color_invert", fill=(0, 0, 0))
picture.save(sys.argv[3], optimize=True)
PY
echo "wrote $out/in-game.png"
