#!/bin/sh
# The demo game directly and through the layer in each runtime mode must give
# the same screenshots, byte for byte; in mode 4 the interface log must name
# the entry points the game called.
#   demo_pixels.sh VELOUR_RUN VELOUR_DEMO DEMO_SOURCE_DIRS [MODES]
# DEMO_SOURCE_DIRS: the folders of the demo's code, separated by ':'.
set -u
run=$1 demo=$2 source=$3 modes=${4:-"3 4 0 1 2"}
work=$(mktemp -d /tmp/velour-pixels-XXXXXX)
trap 'rm -rf "$work"' EXIT
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

# Small and short: four screenshots, the last one after 40 frames.
shoot() { "$@" "$demo" --size 160x90 --frames 40 --shot-every 10 --quiet --screenshots "$folder"; }

folder=$work/direct
shoot >"$work/direct.log" 2>&1 ||
    { echo "FAIL: direct run: $(tail -5 "$work/direct.log")"; exit 1; }
shots=$(ls "$work/direct" | wc -l)
[ "$shots" -eq 4 ] || fail "direct run wrote $shots screenshots, not 4"

for mode in $modes; do
    sysroot=$work/sysroot-$mode
    folder=$work/mode$mode
    shoot "$run" --sysroot "$sysroot" --package com.velour.demo --mode "$mode" -- \
        >"$work/mode$mode.log" 2>&1 ||
        { fail "mode $mode: exit $?: $(grep -v '^velour I' "$work/mode$mode.log" | tail -5)"; continue; }
    grep -q "Runtime Mode : $mode" "$sysroot/sdcard/nimbo.orlo.velour.com.velour.demo.log" ||
        fail "mode $mode: the layer did not start (no banner)"
    # Lists each screenshot that differs, is missing or is extra.
    differ=$(diff -rq "$work/direct" "$work/mode$mode") ||
        fail "mode $mode: screenshots unlike the direct run's: $differ"
done

# Mode 4 logs each entry point once, as the game first calls it.
case " $modes " in *" 4 "*)
    log=$work/sysroot-4/data/local/tmp/orlo/interface_log.txt
    if [ ! -s "$log" ]; then
        fail "mode 4: interface log $log missing or empty"
    else
        called=$(for dir in $(echo "$source" | tr ':' ' '); do cat "$dir"/*.cpp "$dir"/*.h; done | grep -oE '\b(gl|egl)[A-Z][A-Za-z0-9]+\b' | sort -u)
        unknown=$(sort -u "$log" | grep -vxF "$called")
        [ -z "$unknown" ] || fail "mode 4: interface log names what the demo never calls: $unknown"
        lacks=$(printf '%s\n' eglSwapBuffers eglMakeCurrent glClear glDrawElements glDrawArrays \
            glUseProgram glBindFramebuffer glTexStorage2D glBufferData glUniformMatrix4fv \
            glReadPixels | grep -vxF -f "$log")
        [ -z "$lacks" ] || fail "mode 4: interface log lacks" $lacks
        echo "mode 4: interface log names $(sort -u "$log" | wc -l) entry points"
    fi
    ;;
esac

# After the layer's warm-up, the demo's frames cause no drain: the counters
# logged every 100 frames at debug level keep the same drain count from frame
# 200 on. No screenshots here: reading a frame back is a drain by nature.
case " $modes " in *" 0 "*)
    sysroot=$work/sysroot-drains
    if "$run" --sysroot "$sysroot" --package com.velour.demo --mode 0 \
        --prop vendor.nimbo.orlo.log.level=5 -- "$demo" --size 160x90 --frames 300 --quiet \
        >"$work/drains.log" 2>&1; then
        # Counter lines from frame 200 on, and the drains between the first and the last.
        set -- $(sed -n 's/.*: frame \([0-9]*\), jobs .*, drains \([0-9]*\),.*/\1 \2/p' \
            "$sysroot/sdcard/nimbo.orlo.velour.com.velour.demo.log" |
            awk '$1 >= 200 { if (!n++) first = $2; last = $2 } END { print n + 0, last - first }')
        [ "$1" -ge 2 ] || fail "mode 0: fewer than two counter lines from frame 200 on"
        [ "$2" -eq 0 ] || fail "mode 0: $2 drains after warm-up"
    else
        fail "mode 0: the drain run failed: $(tail -5 "$work/drains.log")"
    fi
    ;;
esac

[ "$failures" -eq 0 ] && echo "demo_pixels: all passed" || exit 1
