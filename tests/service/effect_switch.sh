#!/usr/bin/env bash
# The demo as game 1 in play, through the layer with the reference game
# service, in modes 0 and 3: each velour-hearth effect reaches the running game
# (it logs the callback) and changes its picture within a second. The demo
# shoots every few frames; frames are a function of their number, so each shot
# is compared with the direct run's shot of the same frame:
#   hdr at start           -> styled, so not the direct picture
#   null                   -> nothing drawn, so exactly the direct picture
#   color_invert           -> styled again
# Shots written before a switch was sent must show the old effect, shots
# written a second or more after it the new one; those in between are the
# switch landing and are not judged.
set -euo pipefail
run=$1 demo=$2 hearth=$3
work=$(mktemp -d /tmp/velour-effect-switch-XXXXXX)
trap 'rm -rf "$work"' EXIT
every=5
status=0
fail() {
    echo "mode $mode: $*"
    status=1
}

# Waits (generously: the machine may be loaded) until a shot newer than the
# marker file exists.
wait_for_shot_after() {
    local marker=$1
    for _ in $(seq 300); do
        [ -n "$(find "$shots" -name 'frame-*.png' -newer "$marker" -print -quit)" ] && return 0
        sleep 0.1
    done
    return 1
}

# Shots written after marker $1 and not after marker $2 (empty: no upper bound).
shots_between() {
    if [ -n "$2" ]; then
        find "$shots" -name 'frame-*.png' -newer "$1" ! -newer "$2" -printf '%f\n'
    else
        find "$shots" -name 'frame-*.png' -newer "$1" -printf '%f\n'
    fi | sort
}

# Checks shots against the direct run's: "same" wants every one identical,
# "styled" every one different. The last shot may have been cut by the kill.
judge() {
    local want=$1 what=$2 count=0 name
    shift 2
    for name in "$@"; do
        [ "$name" = "$last" ] && continue
        count=$((count + 1))
        if cmp -s "$shots/$name" "$work/direct/$name"; then
            [ "$want" = same ] || { fail "$what: $name equals the direct picture"; return; }
        else
            [ "$want" = styled ] || { fail "$what: $name differs from the direct picture"; return; }
        fi
    done
    [ "$count" -gt 0 ] || fail "$what: no shot to judge"
}

for mode in 0 3; do
    sysroot=$work/sysroot-$mode log=$work/mode$mode.log shots=$work/mode$mode
    mkdir -p "$shots"
    touch "$work/start-$mode"
    "$run" --sysroot "$sysroot" --package com.velour.pubg --mode "$mode" --effect hdr -- \
        "$demo" --script play:1000000 --size 160x90 --quiet --screenshots "$shots" \
        --shot-every "$every" >"$log" 2>&1 &
    game=$!
    for _ in $(seq 300); do
        [ "$(VELOUR_SYSROOT=$sysroot "$hearth" listeners 2>/dev/null)" = 1 ] && break
        sleep 0.1
    done
    wait_for_shot_after "$work/start-$mode" || fail "no screenshot from the game"
    marks=("$work/start-$mode")
    for effect in null color_invert; do
        sleep 0.3
        touch "$work/sent-$effect-$mode"
        VELOUR_SYSROOT=$sysroot "$hearth" effect "$effect" | grep -qx "effect sent to 1 game(s)" ||
            fail "$effect was not sent to the game"
        sleep 1
        touch "$work/landed-$effect-$mode"
        wait_for_shot_after "$work/landed-$effect-$mode" || fail "no screenshot after $effect"
        marks+=("$work/sent-$effect-$mode" "$work/landed-$effect-$mode")
    done
    sleep 0.3
    kill -TERM "$game"
    wait "$game" || true

    last=$(find "$shots" -name 'frame-*.png' -printf '%f\n' | sort | tail -1)
    frames=$((10#$(echo "$last" | tr -dc 0-9)))
    rm -rf "$work/direct"
    "$demo" --script "play:$frames" --size 160x90 --quiet --screenshots "$work/direct" \
        --shot-every "$every" >"$work/direct.log" 2>&1 || fail "the direct run failed"

    # shellcheck disable=SC2046 # file names without spaces
    judge styled "hdr before the first switch" $(shots_between "${marks[0]}" "${marks[1]}")
    # shellcheck disable=SC2046
    judge same "null a second after its switch" $(shots_between "${marks[2]}" "${marks[3]}")
    # shellcheck disable=SC2046
    judge styled "color_invert a second after its switch" $(shots_between "${marks[4]}" "")

    got=$(sed -n 's/.*I got the callback type = \([0-9]*\), config = \([a-z_]*\).*/\1 \2/p' "$log" |
        tr '\n' ',')
    [ "$got" = "3 registered,0 effect,1 effect," ] ||
        fail "the game got \"$got\", not hdr at start, then null and color_invert"
done
exit "$status"
