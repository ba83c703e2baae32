#!/usr/bin/env bash
# Faults injected into the real stack: the demo as game 1 in mode 0 through the
# layer, with one part of the device missing or broken each time. The game
# must run all its frames and exit cleanly; the layer says what it did about
# the fault in the one line given, and never logs the second line given.
#   faults.sh VELOUR_RUN VELOUR_DEMO [CASE...]
set -uo pipefail
run=$1 demo=$2
shift 2
work=$(mktemp -d /tmp/velour-faults-XXXXXX)
trap 'rm -rf "$work"' EXIT
frames=40
etc=odm/etc/tesselfx

# Each case: a name, the change to a fresh sysroot, and the line the layer logs.
fault() {
    local name=$1 line=$3 absent=${4:-} sysroot=$work/$1
    if [ ${#wanted[@]} -gt 0 ] && [[ ! " ${wanted[*]} " =~ " $name " ]]; then return; fi
    # velour-run fills an empty sysroot with the default files.
    mkdir -p "$sysroot"
    "$run" --sysroot "$sysroot" --package com.velour.none -- true >/dev/null 2>&1
    (cd "$sysroot" && eval "$2")
    local log=$work/$name.log
    timeout 120 "$run" --sysroot "$sysroot" --package com.velour.pubg --mode 0 -- \
        "$demo" --frames $frames --size 160x90 >"$log" 2>&1
    local rc=$?
    if [ $rc -ne 0 ] || ! grep -q "^frames: $frames " "$log"; then
        echo "$name: the game did not run to the end (exit $rc)"; tail -n 5 "$log"; status=1
    elif [ -n "$line" ] && [ "$(grep -cF -- "$line" "$log")" -ne 1 ]; then
        echo "$name: not one line \"$line\""; grep -v fpsgo "$log" | tail -n 8; status=1
    elif [ -n "$absent" ] && grep -qF -- "$absent" "$log"; then
        echo "$name: the log says \"$absent\""; status=1
    else
        echo "$name: ok"
    fi
}

wanted=("$@")
status=0
off="Interception : enabled"
fault no-effect-library "rm odm/lib/libtessel.so" "ORLO library libtessel.so not found"
# Any library without the entry: it loads, and no context gets a hook.
fault library-without-entry \
    "cp \$(ldd /bin/true | awk '/libc.so/ {print \$3}') odm/lib/libtessel.so" \
    "ORLO library loaded from" "Tessel initialized"
# Settings the layer cannot read leave it off for the process, silently.
fault settings-truncated "head -c 25 $etc/velour.ini > x && mv x $etc/velour.ini" "" "$off"
fault settings-unreadable "rm $etc/velour.ini && mkdir $etc/velour.ini" "" "$off"
fault settings-wrong-shape "printf '\\x00\\xff[[[\\n=\\n' > $etc/velour.ini" "" "$off"
data="Game data /$etc/defaultEncryptedData/pubg.dat: not a readable data file"
fault game-data-truncated "f=$etc/defaultEncryptedData/pubg.dat; head -c 100 \$f > x && mv x \$f" "$data"
fault game-data-wrong-shape \
    "printf '%s' \$(printf '[1,2]' | base64 | rev) > $etc/defaultEncryptedData/pubg.dat" "$data"
fault game-data-unreadable "f=$etc/defaultEncryptedData/pubg.dat; rm \$f && mkdir \$f" "$data"
filters="defaultFilterConfig.dat missing or unreadable: the styles use their default parameters"
fault filters-truncated "f=$etc/defaultFilterConfig.dat; head -c 100 \$f > x && mv x \$f" "$filters"
fault filters-unreadable "f=$etc/defaultFilterConfig.dat; rm \$f && mkdir \$f" "$filters"
fault filters-wrong-shape \
    "printf '%s' \$(printf '{\"config\":7}' | base64 | rev) > $etc/defaultFilterConfig.dat" \
    "section hdrConfig: missing; hdr uses its defaults"
# No game service: each operation gives its failure value; the data update is
# asked for once.
fault service-absent "true" "getRusFile getHrthService fail"

# Out of frame data (a test-only ceiling of one byte): the calls whose pointer
# data cannot be copied run at once against the game's memory, and the rest
# stays deferred. Its frames are the direct run's.
frame_data_exhausted() {
    local name=frame-data-exhausted
    if [ ${#wanted[@]} -gt 0 ] && [[ ! " ${wanted[*]} " =~ " $name " ]]; then return; fi
    local log=$work/$name.log shots=$work/$name-shots line="Frame data exhausted"
    local demo_args=(--frames $frames --size 160x90 --detail 256 --shot-every 5 --quiet)
    "$demo" "${demo_args[@]}" --screenshots "$shots/direct" >/dev/null 2>&1
    timeout 120 "$run" --sysroot "$work/$name" --package com.velour.demo --mode 0 \
        --prop vendor.nimbo.de.test.frame_data_limit=1 -- \
        "$demo" "${demo_args[@]}" --screenshots "$shots/layer" >"$log" 2>&1
    local rc=$? differ=0 file
    for file in "$shots"/direct/*.png; do
        cmp -s "$file" "$shots/layer/$(basename "$file")" || differ=$((differ + 1))
    done
    if [ $rc -ne 0 ] || ! grep -q "^frames: $frames " "$log"; then
        echo "$name: the game did not run to the end (exit $rc)"; tail -n 5 "$log"; status=1
    elif [ "$(grep -cF -- "$line" "$log")" -ne 1 ] || grep -q "Switching to Immediate mode" "$log"; then
        echo "$name: not one line \"$line\", or a switch"; tail -n 8 "$log"; status=1
    elif [ $differ -ne 0 ] || [ ! -e "$shots/direct/frame-00005.png" ]; then
        echo "$name: $differ frames differ from the direct run's"; status=1
    else
        echo "$name: ok"
    fi
}
frame_data_exhausted
exit $status
