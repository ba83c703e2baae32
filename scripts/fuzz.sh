#!/usr/bin/env bash
# Builds the fuzz targets with clang (address and undefined-behaviour
# sanitizers) in their own build folder and runs each for the given number of
# seconds over its seed corpus in fuzz/corpus. New inputs go to a working
# corpus under the build folder, never into the tree; a crash leaves its input
# there too, and the script fails.
#   scripts/fuzz.sh [SECONDS] [TARGET...]     (default 600 seconds, all targets)
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-600}
shift || true
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(ini dat json parcel labels shock)
build=${VELOUR_FUZZ_DIR:-$top/build-fuzz}

if [ ! -f "$build/build.ninja" ]; then
    CC=clang CXX=clang++ cmake -S "$top" -B "$build" -G Ninja -DVELOUR_FUZZ=ON \
        -DVELOUR_SANITIZE=address,undefined -DVELOUR_BUILD_TESTS=OFF >/dev/null
fi
ninja -C "$build" "${targets[@]/#/fuzz_}"

# A small quarantine keeps the freed memory warm: several times the
# executions per second, and still far more than one input frees.
export ASAN_OPTIONS=${ASAN_OPTIONS:-quarantine_size_mb=16}

status=0
for name in "${targets[@]}"; do
    work="$build/corpus/$name"
    mkdir -p "$work" "$build/crashes/$name"
    log="$build/fuzz-$name.log"
    # A settings file is a few lines: longer inputs only add sections that the
    # look-ups walk again and again, at a tenth of the speed.
    limit=()
    [ "$name" = ini ] && limit=(-max_len=256)
    if ! "$build/fuzz/fuzz_$name" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=1024 \
        "${limit[@]}" \
        -print_final_stats=1 -artifact_prefix="$build/crashes/$name/" \
        "$work" "$top/fuzz/corpus/$name" >"$log" 2>&1; then
        echo "fuzz_$name: FAILED (log $log)"
        grep -m 3 -E "ERROR|runtime error|SUMMARY" "$log" || true
        status=1
        continue
    fi
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    cov=$(grep -oE 'cov: [0-9]+ ft: [0-9]+' "$log" | tail -n 1)
    echo "fuzz_$name: ${seconds}s, $runs executions, $cov"
done
exit $status
