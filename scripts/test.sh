#!/usr/bin/env bash
# Sets up a fresh Debian machine, builds everything and runs all the tests.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build=${VELOUR_BUILD_DIR:-$top/build}
"$top/scripts/setup.sh"
"$top/scripts/build.sh"
ctest --test-dir "$build" --output-on-failure
# The unit tests under the address, undefined-behaviour and thread sanitizers.
"$top/scripts/test-sanitizers.sh"
# Each fuzz target briefly over its seed corpus, so that a broken one is noticed.
"$top/scripts/fuzz.sh" 3
# The same tests built for 32-bit ARM and run under qemu-arm.
"$top/scripts/test-armhf.sh"
