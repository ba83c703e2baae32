#!/bin/sh
# An unchanged third-party program through velour-run: apitrace's eglretrace,
# which dlopens EGL and GLES by soname through waffle. A trace of the test
# program, captured without the loader, replays through the layer in every
# runtime mode to the same image as without it.
#   replay_test.sh VELOUR_RUN GLES_PROGRAM LAYER
set -u
run=$1 program=$2 layer=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

# Mesa's surfaceless platform: no X server needed.
export WAFFLE_PLATFORM=surfaceless_egl

apitrace trace --api egl -o "$work/capture.trace" "$program" >"$work/capture.log" 2>&1 ||
    { echo "FAIL: capture: $(cat "$work/capture.log")"; exit 1; }
image() { grep -E '^[0-9A-F]{32}$' "$1"; }
eglretrace --headless -s - --snapshot-format=MD5 "$work/capture.trace" >"$work/plain.log" 2>&1
plain=$(image "$work/plain.log")
[ -n "$plain" ] || fail "no image without the loader: $(cat "$work/plain.log")"

for mode in 3 4 0 1 2; do
    sysroot=$work/sysroot-$mode
    VELOUR_LOADER_TRACE=1 "$run" --sysroot "$sysroot" --package com.velour.demo --mode "$mode" -- \
        eglretrace --headless -s - --snapshot-format=MD5 "$work/capture.trace" \
        >"$work/mode$mode.log" 2>&1 || fail "mode $mode: exit $?: $(tail -5 "$work/mode$mode.log")"
    [ "$(image "$work/mode$mode.log")" = "$plain" ] || fail "mode $mode: another image"
    grep -q "velour-loader: glDrawArrays -> $layer" "$work/mode$mode.log" ||
        fail "mode $mode: glDrawArrays did not come from the layer"
done
grep -q "velour-loader: glClear -> $layer" "$work/mode4.log" || fail "mode 4: glClear not wrapped"

[ "$failures" -eq 0 ] && echo "replay: all passed" || exit 1
