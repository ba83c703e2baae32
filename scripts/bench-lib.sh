# What the benchmark scripts share; sourced, with $me naming the script in
# messages and $top and $build set.

# Exits 2 unless every argument is a whole number.
whole_numbers() {
  local n
  for n in "$@"; do
    case $n in ''|*[!0-9]*) echo "$me: '$n' is not a whole number" >&2; exit 2 ;; esac
  done
}

# Builds the targets (ninja does nothing when they are up to date); on a
# failure prints the log's end and exits 1.
build_targets() {
  local log=$build/$me-build.log
  [ -f "$build/build.ninja" ] || cmake -S "$top" -B "$build" -G Ninja >/dev/null
  if ! ninja -C "$build" "$@" >"$log" 2>&1; then
    tail -n 20 "$log" >&2
    echo "$me: build failed" >&2
    exit 1
  fi
}

# Runs the command the way WAY does: direct, glthread (Mesa's), modeN
# (through the layer in mode N as com.velour.demo, logging at the debug level
# into the sysroot SYSROOT), or modeNqB (the same with B job buffers, set by
# both queue keys, in place of the host's).
run_way_of() {
  local way=$1 sysroot=$2 mode props=(--prop vendor.nimbo.orlo.log.level=5)
  shift 2
  case $way in
    direct) "$@" ;;
    glthread) mesa_glthread=true "$@" ;;
    mode*)
      mode=${way#mode}
      if [[ $mode == *q* ]]; then
        props+=(--prop "vendor.nimbo.orlo.de.job_queue_count=${mode#*q}"
                --prop "vendor.nimbo.de.job_queue_count=${mode#*q}")
        mode=${mode%%q*}
      fi
      "$build/tools/velour-run/velour-run" --package com.velour.demo --mode "$mode" \
        --sysroot "$sysroot" "${props[@]}" -- "$@" ;;
  esac
}

# The layer's log in a sysroot of run_way_of.
way_log() {
  echo "$1/sdcard/nimbo.orlo.velour.com.velour.demo.log"
}

# The median of column C of a results file ("-": the standard input); "-"
# when the column has no figures.
median() {
  awk -v c="$2" '{ print $c }' "$1" | sort -g | awk '{ v[NR] = $1 } END {
    if (v[1] == "-") { print "-"; exit }
    print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}
