#!/usr/bin/env bash
# The demo through the layer with the reference game service, in modes 0 and 3:
# it starts with the effect velour-run names, and each velour-hearth effect
# reaches the running game, which logs the callback. The effect's picture is
# the effects' work; this checks the way there.
set -euo pipefail
run=$1 demo=$2 hearth=$3
work=$(mktemp -d /tmp/velour-effect-switch-XXXXXX)
trap 'rm -rf "$work"' EXIT
status=0
for mode in 0 3; do
    sysroot=$work/sysroot-$mode log=$work/mode$mode.log
    "$run" --sysroot "$sysroot" --package com.velour.demo --mode "$mode" --effect hdr -- \
        "$demo" --frames 100000 --size 160x90 --quiet >"$log" 2>&1 &
    game=$!
    for _ in $(seq 100); do
        [ "$(VELOUR_SYSROOT=$sysroot "$hearth" listeners 2>/dev/null)" = 1 ] && break
        sleep 0.1
    done
    for effect in pixelize cel_shading; do
        VELOUR_SYSROOT=$sysroot "$hearth" effect "$effect" | grep -qx "effect sent to 1 game(s)" ||
            { echo "mode $mode: $effect was not sent to the game"; status=1; }
    done
    kill -TERM "$game"
    wait "$game" || true
    got=$(sed -n 's/.*I got the callback type = \([0-9]*\), config = \([a-z]*\).*/\1 \2/p' "$log" |
        tr '\n' ',')
    if [ "$got" != "3 registered,6 effect,2 effect," ]; then
        echo "mode $mode: the game got \"$got\", not hdr at start, then pixelize and cel_shading"
        status=1
    fi
done
exit "$status"
