#!/usr/bin/env bash
# What the hooks of a known game cost its frames: the demo as game 1 (with
# the effect "null", which names no style, so nothing is drawn) against the
# demo as game 0 (no hooks), in modes 0 and 3, interleaved, medians of frame
# rate and CPU time per frame printed side by side. See docs/benchmarks.md.
set -euo pipefail

usage() {
  cat <<'USAGE'
usage: scripts/bench-hooks.sh [--frames N] [--size WxH] [--rounds N]

  --frames N   frames per run, all of them play (default 600)
  --size WxH   demo surface (default 640x360)
  --rounds N   runs of each way, interleaved; medians reported (default 3)

Environment: VELOUR_BUILD_DIR (default build/).
USAGE
}

top=$(cd "$(dirname "$0")/.." && pwd)
build=${VELOUR_BUILD_DIR:-$top/build}
me=bench-hooks.sh
. "$top/scripts/bench-lib.sh"
frames=600
size=640x360
rounds=3
while [ $# -gt 0 ]; do
  case $1 in
    --frames) frames=${2:?--frames wants a number}; shift 2 ;;
    --size) size=${2:?--size wants WxH}; shift 2 ;;
    --rounds) rounds=${2:?--rounds wants a number}; shift 2 ;;
    -h|--help) usage; exit 0 ;;
    *) echo "bench-hooks.sh: unknown option '$1'" >&2; usage >&2; exit 2 ;;
  esac
done

whole_numbers "$frames" "$rounds"

build_targets velour-run velour-demo tessel_sysroot
run=$build/tools/velour-run/velour-run
demo=$build/tools/velour-demo/velour-demo

# One run: prints "fps cpu-ms": the demo's frame rate, and the CPU time of the
# whole run (all threads, llvmpipe's included) per frame, which a busy machine
# disturbs less than the wall clock.
measure() {  # package mode
  local times fps
  times=$(mktemp)
  fps=$(/usr/bin/time -f "%U %S" -o "$times" "$run" --package "$1" --mode "$2" --effect null -- \
    "$demo" --size "$size" --script "play:$frames" --quiet 2>/dev/null |
    sed -n 's/.*fps: \([0-9.]*\) .*/\1/p')
  awk -v fps="$fps" -v n="$frames" '{ if (fps != "") printf "%s %.2f\n", fps, ($1 + $2) * 1000 / n }' \
    "$times"
  rm -f "$times"
}

results=$(mktemp)
trap 'rm -f "$results"' EXIT
for round in $(seq "$rounds"); do
  for mode in 0 3; do
    for package in com.velour.demo com.velour.pubg; do
      set -- $(measure "$package" "$mode")
      [ $# -eq 2 ] || { echo "bench-hooks.sh: a run of $package in mode $mode failed" >&2; exit 1; }
      echo "$mode $package $1 $2" >>"$results"
    done
  done
done

printf '%-6s %-22s %8s %12s %10s\n' mode game fps "CPU ms/frame" "CPU cost"
for mode in 0 3; do
  base=$(awk -v m="$mode" '$1 == m && $2 == "com.velour.demo" { print $4 }' "$results" | median - 1)
  for package in com.velour.demo com.velour.pubg; do
    fps=$(awk -v m="$mode" -v p="$package" '$1 == m && $2 == p { print $3 }' "$results" | median - 1)
    ms=$(awk -v m="$mode" -v p="$package" '$1 == m && $2 == p { print $4 }' "$results" | median - 1)
    game=$([ "$package" = com.velour.demo ] && echo "0 (no hooks)" || echo "1 (hooks, style null)")
    # The CPU time's change against game 0: what the hooks add to a frame.
    cost=$(awk -v b="$base" -v c="$ms" 'BEGIN { printf "%+.1f%%", (c / b - 1) * 100 }')
    printf '%-6s %-22s %8s %12s %10s\n' "$mode" "$game" "$fps" "$ms" "$cost"
  done
done
