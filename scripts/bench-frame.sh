#!/usr/bin/env bash
# Runs velour-framebench five ways side by side and prints one table: direct,
# Mesa's glthread, and through the layer in modes 0 (deferred), 1 (immediate)
# and 3 (hooks only), with each figure's ratio to the direct run. Builds the
# workload, the layer and velour-run first if needed. See docs/benchmarks.md.
set -euo pipefail

usage() {
  cat <<'EOF'
usage: scripts/bench-frame.sh [--frames N] [--draws N] [--game-work N] [--rounds N]
                              [--keep DIR] [--buffers LIST]

  --frames N     measured frames per run (default 300, after 120 unmeasured)
  --draws N      draws per frame (default 3000)
  --game-work N  game work units per frame (default: the workload's, 8000)
  --rounds N     run all five ways N times, interleaved, and report medians
                 (default 1)
  --keep DIR     keep the layer runs' sysroots (and their logs) under DIR
  --buffers LIST also run mode 0 with each job buffer count of LIST (e.g. "1 4"),
                 set by both queue keys, to compare with the host default

Environment: VELOUR_BUILD_DIR (default build/); LP_NUM_THREADS (default 0);
GLIBC_TUNABLES (unset: no heap trimming; set it empty for glibc's defaults).
EOF
}

top=$(cd "$(dirname "$0")/.." && pwd)
build=${VELOUR_BUILD_DIR:-$top/build}
me=bench-frame.sh
. "$top/scripts/bench-lib.sh"
frames=300
draws=3000
game_work=
rounds=1
keep=
buffers=
while [ $# -gt 0 ]; do
  case $1 in
    --frames) frames=${2:?--frames wants a number}; shift 2 ;;
    --draws) draws=${2:?--draws wants a number}; shift 2 ;;
    --game-work) game_work=${2:?--game-work wants a number}; shift 2 ;;
    --rounds) rounds=${2:?--rounds wants a number}; shift 2 ;;
    --keep) keep=${2:?--keep wants a folder}; shift 2 ;;
    --buffers) buffers=${2:?--buffers wants a list}; shift 2 ;;
    -h|--help) usage; exit 0 ;;
    *) echo "bench-frame.sh: unknown option '$1'" >&2; usage >&2; exit 2 ;;
  esac
done
whole_numbers "$frames" "$draws" "$rounds" ${game_work:+"$game_work"} $buffers

# velour-framebench needs VELOUR_BUILD_TESTS and Google Benchmark, like the
# other benchmarks.
build_targets velour-run velour-framebench
bench=$build/bench/frame/velour-framebench

# llvmpipe rasterises on the thread that flushes when it has no threads of its
# own, so all driver work stays on the thread making GL calls and the two
# cores are left to the game and whatever worker a way brings.
export LP_NUM_THREADS=${LP_NUM_THREADS:-0}
# llvmpipe grows the heap during a frame and glibc hands it back at the end,
# so with glibc's trimming every frame pays again in page faults (about seven
# times the driver's own cost here), which would swamp the calls being
# measured. Unset means no trimming; set but empty keeps glibc's defaults.
export GLIBC_TUNABLES=${GLIBC_TUNABLES-glibc.malloc.trim_threshold=4294967295}

work=$(mktemp -d /tmp/velour-bench-frame-XXXXXX)
trap 'rm -rf "$work"' EXIT
args=(--frames "$frames" --draws "$draws" --quiet)
[ -n "$game_work" ] && args+=(--game-work "$game_work")

ways=(direct glthread mode0 mode1 mode3)
declare -A label=([direct]="direct" [glthread]="Mesa glthread" [mode0]="layer mode 0"
                  [mode1]="layer mode 1" [mode3]="layer mode 3")
for n in $buffers; do
  ways+=("mode0q$n")
  label[mode0q$n]="mode 0, $n buf"
done

# Per frame, from the layer's counter lines, from the first line at least one
# counting interval past the layer's warm-up (frame 100) to the last:
# "drains copied_KB buffer_wait_ms drain_ms", or "- - - -" without them.
per_frame() {
  local log=$1
  [ -f "$log" ] || { echo "- - - -"; return; }
  sed -n 's/.*DE #\([0-9]*\): frame \([0-9]*\), .*, drains \([0-9]*\), .*, copied \([0-9]*\) bytes, buffer waits \([0-9]*\) us, drain time \([0-9]*\) us.*/\1 \2 \3 \4 \5 \6/p' "$log" |
    awk '{ id[NR] = $1; f[NR] = $2; n[$1]++; for (k = 3; k <= 6; k++) v[NR, k] = $k }
      END {
        best = ""; for (k in n) if (best == "" || n[k] > n[best]) best = k
        if (best == "") { print "- - - -"; exit }
        first = 0; last = 0; prev = 0
        for (i = 1; i <= NR; i++) if (id[i] == best) {
          if (!first && f[i] >= 200) first = i
          prev = last; last = i
        }
        if (!first || first == last) first = prev
        if (!first || f[last] <= f[first]) { print "- - - -"; exit }
        frames = f[last] - f[first]
        printf "%.2f %.1f %.3f %.3f\n", (v[last, 3] - v[first, 3]) / frames,
          (v[last, 4] - v[first, 4]) / frames / 1024,
          (v[last, 5] - v[first, 5]) / frames / 1000, (v[last, 6] - v[first, 6]) / frames / 1000
      }'
}

# One run of one way; appends "fps render_ms game_ms render_cpu_ms cpu_ms
# drains image" to its results.
run_way() {
  local way=$1 round=$2 out line sysroot=
  local err=$work/$way-$round.err
  case $way in mode*) sysroot=$work/$way-$round ;; esac
  out=$(run_way_of "$way" "$sysroot" "$bench" "${args[@]}" 2>"$err") || true
  line=$(printf '%s\n' "$out" | grep '^fps=' | tail -n 1)
  if [ -z "$line" ]; then
    echo "bench-frame.sh: ${label[$way]} gave no result line; its last words:" >&2
    tail -n 5 "$err" >&2
    exit 1
  fi
  local drains="-"
  if [ -n "$sysroot" ]; then
    local counters
    counters=$(per_frame "$(way_log "$sysroot")")
    drains=${counters%% *}
    if [ "$way" = mode0 ]; then
      printf '%s %s\n' "$(printf '%s\n' "$line" | sed -n 's/.*render_ms=\([0-9.]*\).*/\1/p')" \
        "${counters#* }" >> "$work/mode0-time.txt"
    fi
    if [ -n "$keep" ]; then mkdir -p "$keep" && cp -r "$sysroot" "$keep/"; fi
  fi
  printf '%s\n' "$line" | awk -v d="$drains" '{
      for (i = 1; i <= NF; i++) { split($i, kv, "="); v[kv[1]] = kv[2] }
      print v["fps"], v["render_ms"], v["game_ms"], v["render_cpu_ms"], v["cpu_ms"], d, v["image"]
    }' >> "$work/$way.txt"
  echo "  round $round, ${label[$way]}: $line" >&2
}

echo "velour-framebench: $frames frames after 120 unmeasured, $draws draws a frame," \
  "LP_NUM_THREADS=$LP_NUM_THREADS, GLIBC_TUNABLES=${GLIBC_TUNABLES:-(glibc defaults)}," \
  "$rounds round(s) on $(nproc) cores" >&2
for ((r = 1; r <= rounds; r++)); do
  for way in "${ways[@]}"; do run_way "$way" "$r"; done
done

base_fps=$(median "$work/direct.txt" 1)
base_ms=$(median "$work/direct.txt" 2)
base_cpu=$(median "$work/direct.txt" 4)
base_image=$(awk '{ print $7 }' "$work/direct.txt" | sort -u)
row() { printf '| %-14s | %5s | %9s | %9s | %9s | %13s | %9s | %14s | %7s | %12s | %-14s |\n' "$@"; }
echo
row way fps 'vs direct' 'render ms' 'vs direct' 'render CPU ms' 'vs direct' 'process CPU ms' \
  'game ms' 'drains/frame' 'last image'
row --- ---: ---: ---: ---: ---: ---: ---: ---: ---: ---
for way in "${ways[@]}"; do
  images=$(awk '{ print $7 }' "$work/$way.txt" | sort -u)
  if [ "$way" = direct ]; then
    image=$base_image
  elif [ "$images" = "$base_image" ]; then
    image="same as direct"
  else
    image="DIFFERS"
  fi
  read -r fps ms game cpu proc drains <<<"$(for c in 1 2 3 4 5 6; do median "$work/$way.txt" $c; done | xargs)"
  row "${label[$way]}" $(awk -v f="$fps" -v m="$ms" -v c="$cpu" -v p="$proc" -v g="$game" \
      -v bf="$base_fps" -v bm="$base_ms" -v bc="$base_cpu" 'BEGIN {
      printf "%.1f %.2f %.2f %.2f %.2f %.2f %.2f %.2f", f, f / bf, m, m / bm, c, c / bc, p, g }') \
    "$drains" "$image"
done

# Where mode 0's render thread spends its frame, from the layer's counters.
read -r ms copied waits drains <<<"$(for c in 1 2 3 4; do median "$work/mode0-time.txt" $c; done | xargs)"
echo
echo "Layer mode 0, the render thread's time a frame (medians):"
awk -v m="$ms" -v k="$copied" -v w="$waits" -v d="$drains" 'BEGIN {
  if (w == "-") { print "  (no counter lines in the log)"; exit }
  printf "  %-44s %8.2f ms\n", "render thread, first GL call to swap return", m
  printf "  %-44s %8.2f ms\n", "waiting for a free job buffer or frame", w
  printf "  %-44s %8.2f ms\n", "drains (waiting for the worker to finish)", d
  printf "  %-44s %8.2f ms\n", "recording, copies included (the rest)", m - w - d
  printf "  %-44s %8.1f KB\n", "copied into frame data", k
}'
