#!/usr/bin/env bash
# Real GLES programs through the layer: captures glmark2-es2 scenes with
# apitrace, then replays each trace with eglretrace four ways side by side:
# direct, Mesa glthread, and through the layer (velour-run) in modes 0 and 3.
# Prints each way's frame rate, mode 0's drains a frame after the layer's
# warm-up, and whether every frame's image matches the direct replay.
# See docs/benchmarks.md.
set -euo pipefail

usage() {
  cat <<'EOF'
usage: scripts/bench-replay.sh [--rounds N] [--frames N] [--traces DIR] [--scenes LIST]

  --rounds N     replay all four ways N times, interleaved, and report medians
                 (default 3)
  --frames N     frames of each captured scene (default 600: the layer defers
                 from frame 100, and drains are counted from frame 200)
  --traces DIR   keep the traces in DIR and reuse those already there
                 (default: a temporary folder, removed at the end)
  --scenes LIST  glmark2 scenes, separated by blanks (default: the list below)

Needs glmark2-es2 and xvfb-run for the capture (scripts/setup.sh installs them).
Environment: VELOUR_BUILD_DIR (default build/); LP_NUM_THREADS (default 0);
GLIBC_TUNABLES (unset: no heap trimming; set it empty for glibc's defaults).
EOF
}

top=$(cd "$(dirname "$0")/.." && pwd)
build=${VELOUR_BUILD_DIR:-$top/build}
me=bench-replay.sh
. "$top/scripts/bench-lib.sh"
rounds=3
nframes=600
traces=
# The first three draw like games, 100 to 300 times a frame; the last two
# draw once or twice, too few for the layer ever to leave its warm-up.
scenes="ideas pulsar:quads=100 desktop:effect=shadow:windows=24 jellyfish buffer:update-method=map"
while [ $# -gt 0 ]; do
  case $1 in
    --rounds) rounds=${2:?--rounds wants a number}; shift 2 ;;
    --frames) nframes=${2:?--frames wants a number}; shift 2 ;;
    --traces) traces=${2:?--traces wants a folder}; shift 2 ;;
    --scenes) scenes=${2:?--scenes wants a list}; shift 2 ;;
    -h|--help) usage; exit 0 ;;
    *) echo "bench-replay.sh: unknown option '$1'" >&2; usage >&2; exit 2 ;;
  esac
done
whole_numbers "$rounds" "$nframes"
for tool in apitrace eglretrace glmark2-es2 xvfb-run; do
  command -v "$tool" >/dev/null ||
    { echo "bench-replay.sh: $tool is missing; run scripts/setup.sh" >&2; exit 1; }
done

build_targets velour-run

work=$(mktemp -d /tmp/velour-bench-replay-XXXXXX)
trap 'rm -rf "$work"' EXIT
[ -n "$traces" ] || traces=$work/traces
mkdir -p "$traces"

# Replays need no X server: Mesa's surfaceless platform, as in the tests.
export WAFFLE_PLATFORM=surfaceless_egl
export LP_NUM_THREADS=${LP_NUM_THREADS:-0}
# As in bench-frame.sh: no heap trimming. With glibc's trimming a driver on a
# second thread (glthread's, or the layer's worker) allocates from an arena of
# its own that shrinks and grows back every frame: in the desktop scene that
# made mode 0 three to four times slower, from page faults alone.
export GLIBC_TUNABLES=${GLIBC_TUNABLES-glibc.malloc.trim_threshold=4294967295}

name_of() { printf '%s-%s' "$1" "$nframes" | tr ':=' '__'; }

echo "capturing $(printf '%s\n' $scenes | wc -l) scenes of $nframes frames into $traces" >&2
for scene in $scenes; do
  trace=$traces/$(name_of "$scene").trace
  [ -s "$trace" ] && continue
  # Captured without the layer; glmark2 needs a window system, xvfb gives one.
  if ! xvfb-run -a -s "-screen 0 800x600x24" apitrace trace --api egl -o "$trace" \
      glmark2-es2 -s 320x240 -b "$scene:nframes=$nframes:duration=1000" >"$work/capture.log" 2>&1; then
    echo "bench-replay.sh: capture of $scene failed:" >&2
    tail -n 5 "$work/capture.log" >&2
    exit 1
  fi
done
# The first 200 frames of each trace: set-up (compiles, uploads) and the
# layer's warm-up. A way's steady rate is the frames beyond them over the time
# beyond them, the difference between replaying the whole and the head.
head_frames=200
for scene in $scenes; do
  n=$(name_of "$scene")
  [ -s "$traces/$n.head.trace" ] ||
    apitrace trim --frames=0-$((head_frames - 1)) -o "$traces/$n.head.trace" "$traces/$n.trace" \
      >/dev/null 2>&1
  [ -s "$traces/$n.draws" ] && continue
  apitrace dump "$traces/$n.trace" 2>/dev/null | awk '
    / glDraw[A-Za-z]*\(/ { d++ } / eglSwapBuffers\(/ { f++ }
    END { printf "%.0f\n", f ? d / f : 0 }' >"$traces/$n.draws"
done

ways=(direct glthread mode0 mode3)

# eglretrace as the way runs it, with the arguments given.
replay() {
  local way=$1 sysroot=$2
  shift 2
  run_way_of "$way" "$sysroot" eglretrace --headless "$@"
}

# Drains a frame from the layer's counter lines, from the first line at frame
# 200 or later to the last, and the entry points that drained in between.
drains_per_frame() {
  local log=$1
  [ -f "$log" ] || { echo "-"; return; }
  awk '
    /: frame [0-9]+, .*drains [0-9]+,/ {
      match($0, /frame [0-9]+/); f = substr($0, RSTART + 6, RLENGTH - 6) + 0
      match($0, /drains [0-9]+/); d = substr($0, RSTART + 7, RLENGTH - 7) + 0
      if (!first && f >= 200) { first = f; d0 = d } else if (first) { last = f; d1 = d }
    }
    END { if (last > first) printf "%.3f\n", (d1 - d0) / (last - first); else print "-" }' "$log"
}

causes() {
  local log=$1
  [ -f "$log" ] || return 0
  { grep 'drains by entry point' "$log" || true; } | tail -n 1 | sed 's/.*drains by entry point: //'
}

# Per trace and way: the MD5 of every frame's image, replayed once.
echo "comparing every frame's image, one replay each way" >&2
for scene in $scenes; do
  n=$(name_of "$scene")
  for way in "${ways[@]}"; do
    replay "$way" "$work/check-$n-$way" -s - --snapshot-format=MD5 "$traces/$n.trace" 2>/dev/null |
      grep -E '^[0-9A-F]{32}$' | md5sum | cut -c1-8 >"$work/$n.$way.image" || true
  done
done

for ((r = 1; r <= rounds; r++)); do
  for scene in $scenes; do
    n=$(name_of "$scene")
    for way in "${ways[@]}"; do
      sysroot=$work/$n-$way-$r
      out=$(replay "$way" "$sysroot" -b "$traces/$n.trace" 2>&1 | grep 'Rendered' || true)
      head=$(replay "$way" "$sysroot-head" -b "$traces/$n.head.trace" 2>&1 | grep 'Rendered' || true)
      # "Rendered N frames in T secs, ...": steady fps from the two runs.
      read -r frames fps < <(printf '%s\n%s\n' "$out" "$head" |
        awk '{ n[NR] = $2; t[NR] = $5 } END {
          if (NR == 2 && t[1] > t[2] && n[1] > n[2]) print n[1], (n[1] - n[2]) / (t[1] - t[2])
          else print 0, "" }')
      drains=-
      if [ "$way" = mode0 ]; then
        log=$(way_log "$sysroot")
        drains=$(drains_per_frame "$log")
        causes "$log" >"$work/$n.causes"
      fi
      echo "$r ${fps:-0} ${frames:-0} $drains" >>"$work/$n.$way.txt"
      echo "  round $r, $n, $way: ${fps:-no result} fps, drains/frame $drains" >&2
      rm -rf "$sysroot" "$sysroot-head"
    done
  done
done

printf '\n%s rounds, medians; fps past frame %s (eglretrace -b, whole trace less its head), images of every frame against direct\n\n' \
  "$rounds" "$head_frames"
printf '| %-24s | %6s | %5s | %7s | %8s | %7s | %7s | %8s | %8s | %12s | %-6s |\n' program frames \
  draws direct glthread "mode 0" "mode 3" "0/direct" "0/glthr" "drains/frame" images
printf '| %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s |\n' --- ---: ---: ---: ---: ---: \
  ---: ---: ---: ---: ---
for scene in $scenes; do
  n=$(name_of "$scene")
  d=$(median "$work/$n.direct.txt" 2) g=$(median "$work/$n.glthread.txt" 2)
  m0=$(median "$work/$n.mode0.txt" 2) m3=$(median "$work/$n.mode3.txt" 2)
  images=same
  for way in glthread mode0 mode3; do
    cmp -s "$work/$n.direct.image" "$work/$n.$way.image" || images="$images ${way}:differs"
  done
  [ "$images" = same ] || images=${images#same }
  awk -v n="$scene" -v f="$(median "$work/$n.direct.txt" 3)" -v dpf="$(cat "$traces/$n.draws")" -v d="$d" -v g="$g" -v m0="$m0" \
    -v m3="$m3" -v dr="$(median "$work/$n.mode0.txt" 4)" -v im="$images" 'BEGIN {
      printf "| %-24s | %6d | %5d | %7.1f | %8.1f | %7.1f | %7.1f | %8.2f | %8.2f | %12s | %-6s |\n",
        n, f, dpf, d, g, m0, m3, (d > 0 ? m0 / d : 0), (g > 0 ? m0 / g : 0), dr, im }'
done
echo
for scene in $scenes; do
  n=$(name_of "$scene")
  if [ -s "$work/$n.causes" ]; then
    echo "$scene, mode 0, drains by entry point over the run: $(cat "$work/$n.causes")"
  fi
done
