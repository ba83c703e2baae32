#!/usr/bin/env bash
# The main job: sets up, builds, and loads libvelour.so the way the platform's
# loader does, for a configured process in each runtime mode and for one the
# settings do not name, printing the banner and what the layer hands out.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build=${VELOUR_BUILD_DIR:-$top/build}
"$top/scripts/setup.sh"
"$top/scripts/build.sh"

sysroot=$(mktemp -d /tmp/velour-demo-XXXXXX)
trap 'rm -rf "$sysroot"' EXIT
mkdir -p "$sysroot/odm/etc/tesselfx" "$sysroot/dev"
cat > "$sysroot/odm/etc/tesselfx/velour.ini" <<'INI'
; settings of the demo device
[com.velour.demo]
game=0
runtime_mode=0
enabled=1
INI
export VELOUR_SYSROOT=$sysroot
export VELOUR_PROPERTY_STORE=$sysroot/dev/__properties__
prop="$build/tools/velour-prop"
probe="$build/tools/velour-probe"
names=(eglMakeCurrent eglGetCurrentContext eglSwapBuffers glClear glDrawArrays glUniform4fv glNotAName)

for mode in 0 1 2 3 4; do
  echo "=== com.velour.demo, vendor.nimbo.orlo.mode=$mode"
  "$prop" set vendor.nimbo.orlo.mode "$mode"
  "$probe" --package com.velour.demo "${names[@]}" 2>&1 | grep -v '^\s*$'
done
echo "=== com.velour.unlisted (not in the settings)"
"$probe" --package com.velour.unlisted "${names[@]}" 2>&1
