#!/usr/bin/env bash
# Weapon haptics end to end: the demo as game 1 with its shooter HUD, through
# the layer with the reference game service, in modes 0 and 3 (one buffer
# update variant each). The service switches haptics on during the lobby;
# the script then fires 20 shots with two weapons, with a reload, a pickup
# and a weapon switch between the bursts, each followed by 30 idle frames,
# longer than any hold-off (at most 0.6 s of frames at 25 frames a second).
# Frames last at least 40 ms, so the 34 ms gate throttles none. Every shot is
# therefore one the rules can see: the service must record exactly one
# message per shot, with the weapon of the shot, in order, none before the
# shot's frame, and none in a hold-off (the script fires in none). What the
# rules miss by design (shots inside a hold-off, throttled frames, the
# first frames of play before the UI buffers are mirrored) is pinned by the
# fake-driver tests. The reload bar is found only on every 60th frame that the
# gate lets through, so the script plays 150 frames before the first reload:
# without the bar, a refilled magazine would read as a shot. A run with
# haptics left off records no message. The
# effect is still drawn under the HUD during play.
set -euo pipefail
run=$1 demo=$2 hearth=$3
work=$(mktemp -d /tmp/velour-haptics-XXXXXX)
trap 'rm -rf "$work"' EXIT
status=0
fail() {
    echo "$*"
    status=1
}
package=com.velour.pubg
script=lobby:75,play:150,fire:6,play:30,reload:10,play:30,fire:4,pickup:8,play:30,fire:4
script=$script,switch:10,play:30,fire:6,play:20,lobby:2000

# Starts the demo in `mode` with `variant`; haptics on unless $3 is "off".
# Waits for its shots (or, with haptics off, its last burst), then asks the
# service what it recorded and ends the game.
play() {
    local mode=$1 variant=$2 haptics=$3 shots=$4 run_script=$5
    local sysroot=$work/sysroot-$mode-$haptics log=$work/$mode-$haptics.log
    "$run" --sysroot "$sysroot" --package "$package" --mode "$mode" --effect color_invert \
        --prop vendor.nimbo.orlo.log.level=5 -- \
        "$demo" --size 320x180 --quiet --script "$run_script" --shooter "$variant" \
        --shots "$work/shots-$mode-$haptics" --frame-ms 40 >"$log" 2>&1 &
    local game=$!
    for _ in $(seq 100); do
        [ "$(VELOUR_SYSROOT=$sysroot "$hearth" listeners 2>/dev/null)" = 1 ] && break
        sleep 0.1
    done
    if [ "$haptics" = on ]; then
        VELOUR_SYSROOT=$sysroot "$hearth" haptics on | grep -qx "haptics sent to 1 game(s)" ||
            fail "mode $mode: haptics on did not reach the game"
    fi
    for _ in $(seq 600); do
        [ "$(cat "$work/shots-$mode-$haptics" 2>/dev/null | wc -l)" -ge "$shots" ] && break
        sleep 0.1
    done
    sleep 1
    VELOUR_SYSROOT=$sysroot "$hearth" weapons >"$work/weapons-$mode-$haptics" ||
        fail "mode $mode: the service could not list its weapon messages"
    kill -TERM "$game"
    wait "$game" || true
    # The effect was drawn during play (frame lines of the hook, debug level).
    local effects
    effects=$(grep -c "play 1, .* effect at draw" \
        "$sysroot/sdcard/nimbo.orlo.velour.$package.log" 2>/dev/null || true)
    [ "${effects:-0}" -ge 100 ] || fail "mode $mode: the effect was drawn in ${effects:-0} frames of play"
    grep -q "velour _parseError\|weaponNameRegex is\|4DShock data of" "$sysroot/sdcard/nimbo.orlo.velour.$package.log" &&
        fail "mode $mode: the haptics data was refused"
    true
}

for run_case in "0 map" "3 subdata"; do
    set -- $run_case
    mode=$1 variant=$2
    play "$mode" "$variant" on 20 "$script"
    shots=$work/shots-$mode-on weapons=$work/weapons-$mode-on
    [ "$(wc -l <"$shots")" -eq 20 ] || fail "mode $mode: the demo fired $(wc -l <"$shots") shots, not 20"
    if [ "$(cut -d' ' -f2 "$shots")" != "$(cut -d' ' -f2 "$weapons")" ]; then
        fail "mode $mode: the service got $(wc -l <"$weapons") messages, not one per shot in order:" \
            "$(paste -d' ' <(cut -d' ' -f2 "$shots") <(cut -d' ' -f2 "$weapons") | tr '\n' ',')"
    fi
    # No message before its shot's frame was shown.
    early=$(paste -d' ' "$shots" "$weapons" | awk 'NF == 4 && $3 < $1 { n++ } END { print n + 0 }')
    [ "$early" -eq 0 ] || fail "mode $mode: $early messages came before their shot"
    names=$(cut -d' ' -f2 "$weapons" | uniq | tr '\n' ' ')
    [ "$names" = "Weapon_AKM Weapon_M416 " ] ||
        fail "mode $mode: weapons in order \"$names\", not the rifle, then the M416"
    echo "mode $mode ($variant): $(wc -l <"$weapons") messages for 20 shots;" \
        "ms from the shot's swap to the service's record:" \
        "$(paste -d' ' "$shots" "$weapons" | awk 'NF == 4 { d = ($3 - $1) / 1e6; s += d;
            if (d > m) m = d; n++ } END { if (n) printf "mean %.1f, max %.1f", s / n, m }')"
done

# Haptics left off: shots fired, no message.
play 3 subdata off 6 lobby:30,play:60,fire:6,play:20,lobby:2000
[ "$(wc -l <"$work/shots-3-off")" -eq 6 ] || fail "haptics off: the demo did not fire"
[ ! -s "$work/weapons-3-off" ] || fail "haptics off: the service got $(wc -l <"$work/weapons-3-off") messages"

[ "$status" -eq 0 ] && echo "haptics: all passed"
exit "$status"
