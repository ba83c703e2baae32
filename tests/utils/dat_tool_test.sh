#!/bin/sh
# The configuration file tool as its users run it: round trips, and refuses
# broken files with a message that says what is wrong, and a failing status.
set -u
tool=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

# expect STATUS PATTERN COMMAND...: the status, and PATTERN in the output.
expect() {
    want=$1 pattern=$2
    shift 2
    "$@" >"$work/out" 2>&1
    got=$?
    [ "$got" -eq "$want" ] || fail "$* exited $got, not $want: $(cat "$work/out")"
    [ -z "$pattern" ] || grep -q -- "$pattern" "$work/out" || fail "$*: no \"$pattern\" in: $(cat "$work/out")"
}

cat >"$work/filters.json" <<'JSON'
{"version":"1.0.2","config":"filters",
 "pixelizeConfig":{"parameters":[{"varName":"uPixelSize","type":"uniform1f","value":8}]},
 "celShadingConfig":{"parameters":[]},"hdrConfig":{"parameters":[]},
 "colorInvertConfig":{"parameters":[]},"nightVisionConfig":{"parameters":[]},
 "oldMovieConfig":{"parameters":[]}}
JSON

# Round trip, byte for byte, and the wrapped file has no line break.
expect 0 "" "$tool" wrap "$work/filters.json" "$work/filters.dat"
[ "$(wc -l <"$work/filters.dat")" -eq 0 ] || fail "the .dat file has a line break"
"$tool" unwrap "$work/filters.dat" - >"$work/back.json" || fail "unwrap to stdout failed"
cmp -s "$work/filters.json" "$work/back.json" || fail "unwrap did not give back the input"

expect 0 "valid filter configuration" "$tool" validate --kind filter "$work/filters.dat"
expect 0 "valid filter configuration" "$tool" validate --kind filter "$work/filters.json"
expect 1 'invalid game data: .*"game"' "$tool" validate --kind game "$work/filters.dat"

# Corrupt .dat files: a final newline, not base64, not JSON once unwrapped, plain JSON.
cp "$work/filters.dat" "$work/newline.dat" && echo >>"$work/newline.dat"
expect 1 "line break" "$tool" validate --kind filter "$work/newline.dat"
printf 'not*base64' >"$work/junk.dat"
expect 1 "byte 3 .*is not base64" "$tool" unwrap "$work/junk.dat" "$work/junk.txt"
printf 'this is no JSON at all' >"$work/text.txt"
"$tool" wrap "$work/text.txt" "$work/text.dat"
expect 1 "not JSON after unwrapping" "$tool" validate --kind filter "$work/text.dat"
cp "$work/filters.json" "$work/plain.dat"
expect 1 "plain JSON" "$tool" validate --kind filter "$work/plain.dat"

# Settings: good, missing keys, values the layer cannot read, and the wrapped form.
printf '[com.example.game]\ngame = 1\nruntime_mode=0\nenabled=1\n' >"$work/velour.ini"
expect 0 "no problems" "$tool" check-ini "$work/velour.ini"
"$tool" wrap "$work/velour.ini" "$work/velour.dat"
expect 0 "no problems" "$tool" check-ini "$work/velour.dat"
printf '[com.example.one]\ngame=1\n[com.example.two]\ngame=two\nruntime_mode=0x1\nenabled=1\n' \
    >"$work/bad.ini"
expect 1 "\[com.example.one\]: missing runtime_mode, enabled" "$tool" check-ini "$work/bad.ini"
expect 1 '\[com.example.two\]: key "game": value "two" is not a decimal integer' \
    "$tool" check-ini "$work/bad.ini"
expect 1 'key "runtime_mode": value "0x1"' "$tool" check-ini "$work/bad.ini"

# Usage.
expect 2 "usage" "$tool"
expect 2 "--kind game or --kind filter" "$tool" validate "$work/filters.json"
expect 0 "check-ini" "$tool" --help

[ "$failures" -eq 0 ] && echo "all dat tool checks passed" || exit 1
