#!/usr/bin/env bash
# Configures and builds the project into build/ (or $VELOUR_BUILD_DIR).
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build=${VELOUR_BUILD_DIR:-$top/build}
cmake -S "$top" -B "$build" -G Ninja "$@" >/dev/null
ninja -C "$build"
