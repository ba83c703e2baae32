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
shots=$(cd "$work/direct" && ls)
[ "$(echo "$shots" | wc -w)" -eq 4 ] || fail "direct run wrote $(echo "$shots" | wc -w) screenshots, not 4"

for mode in $modes; do
    sysroot=$work/sysroot-$mode
    folder=$work/mode$mode
    shoot "$run" --sysroot "$sysroot" --package com.velour.demo --mode "$mode" -- \
        >"$work/mode$mode.log" 2>&1 ||
        { fail "mode $mode: exit $?: $(grep -v '^velour I' "$work/mode$mode.log" | tail -5)"; continue; }
    grep -q "Runtime Mode : $mode" "$sysroot/sdcard/nimbo.orlo.velour.com.velour.demo.log" ||
        fail "mode $mode: the layer did not start (no banner)"
    same=0
    for shot in $shots; do
        if [ ! -f "$work/mode$mode/$shot" ]; then
            fail "mode $mode: no $shot"
        elif cmp -s "$work/direct/$shot" "$work/mode$mode/$shot"; then
            same=$((same + 1))
        else
            fail "mode $mode: $shot differs from the direct run"
        fi
    done
    for file in "$work/mode$mode"/*; do
        [ -f "$work/direct/${file##*/}" ] || fail "mode $mode: ${file##*/}, which the direct run has not"
    done
    echo "mode $mode: $same of $(echo "$shots" | wc -w) screenshots identical"
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
        for name in eglSwapBuffers eglMakeCurrent glClear glDrawElements glDrawArrays \
            glUseProgram glBindFramebuffer glTexStorage2D glBufferData glUniformMatrix4fv \
            glReadPixels; do
            grep -qxF "$name" "$log" || fail "mode 4: interface log lacks $name"
        done
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
        drains=$(sed -n 's/.*: frame \([0-9]*\), jobs .*, drains \([0-9]*\),.*/\1 \2/p' \
            "$sysroot/sdcard/nimbo.orlo.velour.com.velour.demo.log" | awk '$1 >= 200')
        first=$(echo "$drains" | head -1 | cut -d' ' -f2)
        last=$(echo "$drains" | tail -1 | cut -d' ' -f2)
        if [ "$(echo "$drains" | grep -c .)" -lt 2 ]; then
            fail "mode 0: fewer than two counter lines from frame 200 on"
        elif [ "$first" != "$last" ]; then
            fail "mode 0: $((last - first)) drains after warm-up ($(echo "$drains" | tr '\n' ' '))"
        else
            echo "mode 0: no drain from frame $(echo "$drains" | head -1 | cut -d' ' -f1) to $(echo "$drains" | tail -1 | cut -d' ' -f1)"
        fi
    else
        fail "mode 0: the drain run failed: $(tail -5 "$work/drains.log")"
    fi
    ;;
esac

[ "$failures" -eq 0 ] && echo "demo_pixels: all passed"
[ "$failures" -eq 0 ]
