#!/usr/bin/env bash
# The soak: the demo as game 1 through the layer in mode 0 for many frames, in
# play (so the analysis runs) with a style drawn, while the game service
# switches the effect every few seconds. Every few seconds it samples the
# game's RSS and the layer's frame data high-water mark (from its debug line),
# and at the end draws both against time into a PNG and says whether memory
# stayed flat after warm-up (the first fifth of the run).
#   scripts/soak.sh [FRAMES] [PNG]    (default 100000 frames, docs/soak.png)
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build=${VELOUR_BUILD_DIR:-$top/build}
frames=${1:-100000}
png=${2:-$top/docs/soak.png}
work=$(mktemp -d /tmp/velour-soak-XXXXXX)
trap 'kill "$game" 2>/dev/null || true; rm -rf "$work"' EXIT
run=$build/tools/velour-run/velour-run
hearth=$build/tools/hearth/velour-hearth
samples=$work/samples.txt

"$run" --sysroot "$work/sysroot" --hearth --package com.velour.pubg --mode 0 --effect hdr \
    --prop vendor.nimbo.orlo.log.level=5 -- \
    "$build/tools/velour-demo/velour-demo" --script "play:$frames" --size 64x36 --no-hud \
    >"$work/game.log" 2>&1 &
game=$!
start=$(date +%s)
effects=(hdr pixelize cel_shading old_movie night_vision edge_detection)
n=0
# The demo is velour-run's child; its RSS is what the game would see.
while kill -0 "$game" 2>/dev/null; do
    sleep 3
    demo=$(pgrep -P "$game" -f '^com.velour.pubg' | head -n 1 || true)
    [ -n "$demo" ] || continue
    rss=$(awk '/^VmRSS/ {print $2}' "/proc/$demo/status" 2>/dev/null || echo "")
    [ -n "$rss" ] || continue
    counters=$(tail -c 20000 "$work"/sysroot/sdcard/*.log 2>/dev/null |
        grep -o ': frame [0-9]*, jobs.*high-water [0-9]*' | tail -n 1 || true)
    frame=$(echo "$counters" | awk '{print $3}' | tr -d ,)
    high=$(echo "$counters" | awk '{print $NF}')
    echo "$(($(date +%s) - start)) ${frame:-0} $rss ${high:-0}" >>"$samples"
    VELOUR_SYSROOT=$work/sysroot "$hearth" effect "${effects[$((n++ % ${#effects[@]}))]}" \
        >/dev/null 2>&1 || true
done
wait "$game" && rc=0 || rc=$?
end=$(date +%s)
grep -E '^frames: ' "$work/game.log" || true
echo "soak: $frames frames in $((end - start)) s, exit $rc, $(wc -l <"$samples") samples"
python3 "$top/scripts/soak_plot.py" "$samples" "$png"
[ "$rc" -eq 0 ]
