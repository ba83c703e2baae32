#!/usr/bin/env bash
# The main job: sets up, builds, and runs the demo game directly and through
# the layer (loaded as the platform's loader loads it) in the deferred mode and
# the hooks-only mode, with screenshots; prints frame rates side by side and
# whether every frame is identical to the direct run's. Then, in each mode, runs
# it as game 1 in play with the reference game service and switches the effect
# while it runs. Last, the demo as game 1 with a lobby, play and a lobby again:
# the effect must show in the play frames only.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build=${VELOUR_BUILD_DIR:-$top/build}

frames=120 size=640x360 modes="0 3"
usage() {
    cat <<EOF
usage: scripts/demo.sh [--frames N] [--size WxH] [--modes "0 3"]

Installs what is missing, builds into \$VELOUR_BUILD_DIR (default build/), then
runs velour-demo directly and through velour-run --mode N for each mode
(default "0 3": 0 deferred, 3 hooks only; 1, 2 and 4 also work), with a
screenshot every 30 frames into a folder under /tmp, and prints frames per
second and render-thread ms per frame of each run and whether its frames are
identical, byte for byte, to the direct run's. Exits 1 if any frame differs or
a run fails. Then runs the demo once more in each mode, as game 1 in play, with the game service
(velour-run --effect hdr) and switches its effect with velour-hearth while it
runs, and prints the effects the game received.

examples:
  scripts/demo.sh
  scripts/demo.sh --frames 300 --size 1280x720 --modes "0 1 2 3 4"
EOF
}
while [ $# -gt 0 ]; do
    case $1 in
    --frames) frames=${2:?--frames wants a number}; shift 2 ;;
    --size) size=${2:?--size wants WxH}; shift 2 ;;
    --modes) modes=${2:?--modes wants a list}; shift 2 ;;
    -h | --help) usage; exit 0 ;;
    *) echo "demo.sh: unknown option $1 (see --help)" >&2; exit 2 ;;
    esac
done

"$top/scripts/setup.sh"
"$top/scripts/build.sh"

demo=$build/tools/velour-demo/velour-demo
run=$build/tools/velour-run/velour-run
shots=$(mktemp -d /tmp/velour-demo-XXXXXX)
echo "screenshots in $shots"

# One run: its frame figures, or the reason it failed.
# Prints "FPS MS" on success.
run_demo() {
    local name=$1
    shift
    local log=$shots/$name.log
    if ! "$@" "$demo" --frames "$frames" --size "$size" --shot-every 30 --quiet \
        --screenshots "$shots/$name" >"$log" 2>&1; then
        echo "demo.sh: the $name run failed:" >&2
        grep -v '^velour I' "$log" | tail -5 >&2
        return 1
    fi
    sed -n 's/^frames: [0-9]*  fps: \([0-9.]*\)  render-thread ms\/frame: \([0-9.]*\)$/\1 \2/p' "$log"
}

# The frames of a run against the direct run's: "identical (K of K)" or what differs.
compare() {
    local name=$1 same=0 total=0 differ=()
    for file in "$shots"/direct/*.png; do
        total=$((total + 1))
        if cmp -s "$file" "$shots/$name/$(basename "$file")"; then
            same=$((same + 1))
        else
            differ+=("$(basename "$file" .png)")
        fi
    done
    if [ "$same" -eq "$total" ]; then
        echo "identical ($same of $total)"
    else
        echo "DIFFERENT: ${differ[*]} ($same of $total identical)"
    fi
}

status=0
declare -A fps ms frames_result
labels=(direct)
read -r "fps[direct]" "ms[direct]" < <(run_demo direct) || exit 1
frames_result[direct]="(reference)"
for mode in $modes; do
    name=mode$mode
    labels+=("$name")
    if result=$(run_demo "$name" "$run" --package com.velour.demo --mode "$mode" --) &&
        [ -n "$result" ]; then
        read -r "fps[$name]" "ms[$name]" <<<"$result"
        frames_result[$name]=$(compare "$name")
        case ${frames_result[$name]} in identical*) ;; *) status=1 ;; esac
    else
        fps[$name]=- ms[$name]=- frames_result[$name]="run failed"
        status=1
    fi
done

# The game service: the demo as game 1 in play, started with "hdr" and switched
# twice while it runs. The game logs each callback it gets; those lines are the
# proof of the switch, and the shots in service-modeN show the picture change.
hearth=$build/tools/hearth/velour-hearth
declare -A switched
for mode in $modes; do
    sysroot=$shots/service-sysroot-$mode log=$shots/service-mode$mode.log
    "$run" --sysroot "$sysroot" --package com.velour.pubg --mode "$mode" --effect hdr -- \
        "$demo" --script play:1000000 --size "$size" --quiet --shot-every 10 \
        --screenshots "$shots/service-mode$mode" >"$log" 2>&1 &
    game=$!
    for _ in $(seq 300); do
        [ "$(VELOUR_SYSROOT=$sysroot "$hearth" listeners 2>/dev/null)" = 1 ] && break
        sleep 0.1
    done
    for effect in pixelize cel_shading; do
        sleep 0.5
        VELOUR_SYSROOT=$sysroot "$hearth" effect "$effect" >>"$shots/service-switch.log" 2>&1 || true
    done
    sleep 0.5
    kill -TERM "$game" 2>/dev/null || true
    wait "$game" 2>/dev/null || true
    got=$(sed -n 's/.*I got the callback type = \([0-9]*\), config = \([a-z_]*\).*/\1/p' "$log" |
        tr '\n' ' ')
    switched[$mode]=${got:-none}
    [ "$got" = "3 6 2 " ] || status=1
done

# The demo as game 1: lobby, play, lobby, with the style color_invert. Shots
# every 10 frames: the play shots (after the first frame of play) carry the
# style under the HUD, the lobby shots are the direct run's.
script=lobby:30,play:60,lobby:30
"$demo" --script "$script" --size "$size" --shot-every 10 --quiet \
    --screenshots "$shots/game-direct" >"$shots/game-direct.log" 2>&1 || status=1
declare -A game_result
for mode in $modes; do
    name=game-mode$mode
    if "$run" --package com.velour.pubg --mode "$mode" --effect color_invert -- "$demo" \
        --script "$script" --size "$size" --shot-every 10 --quiet --screenshots "$shots/$name" \
        >"$shots/$name.log" 2>&1; then
        styled=0 plain=0
        for frame in 40 50 60 70 80 90; do
            cmp -s "$shots/game-direct/frame-000$frame.png" "$shots/$name/frame-000$frame.png" ||
                styled=$((styled + 1))
        done
        for frame in 010 020 030 100 110 120; do
            cmp -s "$shots/game-direct/frame-00$frame.png" "$shots/$name/frame-00$frame.png" &&
                plain=$((plain + 1))
        done
        game_result[$mode]="styled play shots: $styled of 6, lobby shots as direct: $plain of 6"
        [ "$styled" -eq 6 ] && [ "$plain" -eq 6 ] || status=1
    else
        game_result[$mode]="run failed"
        status=1
    fi
done

echo
echo "velour-demo as com.velour.demo (game 0: no effect, frames must equal direct),"
echo "$size, $frames frames, screenshots every 30 frames and the last"
printf '%-9s %8s %24s   %s\n' run fps "render-thread ms/frame" "frames"
for name in "${labels[@]}"; do
    label=$name
    [ "$name" = direct ] || label="mode ${name#mode}"
    printf '%-9s %8s %24s   %s\n' "$label" "${fps[$name]}" "${ms[$name]}" "${frames_result[$name]}"
done
echo
echo "with the game service, as game 1 in play: effect types the game received"
echo "(3 hdr at start, then switched by velour-hearth to 6 pixelize, 2 cel_shading)"
for mode in $modes; do
    case ${switched[$mode]} in
    "3 6 2 ") verdict="switched twice" ;;
    *) verdict="NOT SWITCHED as asked" ;;
    esac
    printf 'mode %-4s %-8s %s   shots in %s\n' "$mode" "${switched[$mode]}" "$verdict" \
        "$shots/service-mode$mode"
done
echo
echo "as game 1 (com.velour.pubg) with the effect color_invert, $script"
echo "(the effect lands under the HUD during play; lobby frames equal direct)"
for mode in $modes; do
    printf 'mode %-4s %s\n' "$mode" "${game_result[$mode]}"
done
echo
echo "screenshots and logs in $shots"
exit "$status"
