#!/usr/bin/env bash
# The game service failing under a running game: the demo as game 1 in mode 0
# with its shooter HUD and haptics on, 40 ms frames. Between two bursts of
# four shots the service is either killed and a new one started, or stopped
# and continued. The game must not wait on the service: within each burst the
# shots stay 5 frames apart. Every shot reaches a service: after a restart
# through a fresh look-up (the callback is not registered again), after a stop
# once the service runs again. The layer logs the death once and nothing for
# a stop, which it cannot tell from a slow service; the effect is drawn all
# along.
#   outage.sh VELOUR_RUN VELOUR_DEMO VELOUR_HEARTH VELOUR_HEARTHD
set -uo pipefail
run=$1 demo=$2 hearth=$3 hearthd=$4
work=$(mktemp -d /tmp/velour-outage-XXXXXX)
restarted=
trap '[ -n "$restarted" ] && kill "$restarted" 2>/dev/null; rm -rf "$work"' EXIT
package=com.velour.pubg
# The first 150 frames of play let the hook find the HUD's buffers; the fault
# comes in the 150 idle frames after the first burst.
script=lobby:75,play:150,fire:4,play:150,fire:4,play:30,lobby:2000
status=0
fail() {
    echo "$*"
    status=1
}

# Waits up to $2 tenths of a second for the command in $1 to succeed.
wait_for() {
    for _ in $(seq "$2"); do
        eval "$1" && return 0
        sleep 0.1
    done
    return 1
}
lines() { cat "$1" 2>/dev/null | wc -l; }

outage() {
    local kind=$1 sysroot=$work/$1 log=$work/$1.log shots=$work/$1.shots
    local weapons=$work/$1/data/local/tmp/hearth/weapons.log
    "$run" --sysroot "$sysroot" --package "$package" --mode 0 --effect color_invert \
        --prop vendor.nimbo.orlo.log.level=5 -- \
        "$demo" --size 320x180 --quiet --script "$script" --shooter map --shots "$shots" \
        --frame-ms 40 >"$log" 2>&1 &
    local runner=$! service
    export VELOUR_SYSROOT=$sysroot
    wait_for '[ "$("$hearth" listeners 2>/dev/null)" = 1 ]' 200 || fail "$kind: the game did not register"
    "$hearth" haptics on >/dev/null || fail "$kind: haptics on did not reach the game"
    wait_for '[ "$(lines "$weapons")" -ge 4 ]' 300 || fail "$kind: the first burst did not arrive"
    service=$(pgrep -P "$runner" -x velour-hearthd)
    if [ "$kind" = kill ]; then
        kill -KILL "$service"
        wait_for 'grep -q "remote (hearth) died" "$log"' 50 || fail "$kind: the death went unseen"
        "$hearthd" >/dev/null 2>&1 &
        restarted=$!
        wait_for '"$hearth" listeners >/dev/null 2>&1' 100 || fail "$kind: no new service"
    else
        kill -STOP "$service"
        wait_for '[ "$(lines "$shots")" -ge 8 ]' 300
        sleep 1
        [ "$(lines "$weapons")" -eq 4 ] || fail "$kind: a stopped service took messages"
        kill -CONT "$service"
    fi
    wait_for '[ "$(lines "$weapons")" -ge 8 ]' 300
    sleep 0.5
    unset VELOUR_SYSROOT
    kill -TERM "$runner"
    wait "$runner"
    [ -n "$restarted" ] && kill "$restarted" && wait "$restarted" 2>/dev/null
    restarted=

    [ "$(lines "$shots")" -eq 8 ] || fail "$kind: the demo fired $(lines "$shots") shots, not 8"
    [ "$(lines "$weapons")" -eq 8 ] || fail "$kind: the services got $(lines "$weapons") messages"
    # A burst's shots are 5 frames (200 ms) apart; a frame that waited on the
    # service would stretch a gap.
    local gap
    gap=$(awk 'NR % 4 != 1 { d = ($1 - last) / 1e6; if (d > m) m = d } { last = $1 }
        END { printf "%d", m }' "$shots")
    [ "$gap" -lt 400 ] || fail "$kind: $gap ms between two shots of a burst"
    local died
    died=$(grep -c "remote (hearth) died" "$log")
    [ "$died" -eq "$([ "$kind" = kill ] && echo 1 || echo 0)" ] || fail "$kind: $died death lines"
    grep -q "getHrthService fail\|could not get hearth service\|failed: ret" "$log" &&
        fail "$kind: a call failed: $(grep -m1 "fail" "$log")"
    local effects
    effects=$(grep -c "play 1, .* effect at draw" "$sysroot/sdcard/nimbo.orlo.velour.$package.log")
    [ "$effects" -ge 200 ] || fail "$kind: the effect was drawn in $effects frames of play"
    [ "$status" -eq 0 ] && echo "$kind: ok, widest gap in a burst $gap ms"
}

outage kill
outage stop
exit "$status"
