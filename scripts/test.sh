#!/usr/bin/env bash
# Sets up a fresh Debian machine, builds everything and runs all the tests.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build=${VELOUR_BUILD_DIR:-$top/build}
"$top/scripts/setup.sh"
"$top/scripts/build.sh"
ctest --test-dir "$build" --output-on-failure
