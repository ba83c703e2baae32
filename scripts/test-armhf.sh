#!/usr/bin/env bash
# Builds the layer, its tools and the unit tests for 32-bit ARM Linux and runs
# the tests under qemu-arm: pointer width, alignment and layouts as on a 32-bit
# device. Installs what it needs; safe to run again.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
cd "$top"

packages=(g++-arm-linux-gnueabihf qemu-user util-linux)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  echo "test-armhf: installing ${missing[*]}"
  $sudo apt-get update -qq || true
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
"$top/scripts/setup.sh"
"$top/scripts/armhf-sysroot.sh"

# Only what the cross build leaves out is worth reading from the configure step.
cmake --preset armhf | { grep -E "left out|not built" || true; }
# The build runs the armhf velour-dat to wrap the sysroot's data files; its
# libutils finds its own libraries only through this path under emulation.
sysroot_libs="$top/build-armhf-sysroot/usr/lib/arm-linux-gnueabihf/android:$top/build-armhf-sysroot/usr/lib/p7zip"
LD_LIBRARY_PATH="$sysroot_libs${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}" cmake --build --preset armhf

# The tests start armhf programs of their own, which only a private binfmt
# registration lets run (see armhf-run.sh).
status=0
"$top/scripts/armhf-run.sh" ctest --preset armhf || status=$?
if [ "$status" -eq 77 ]; then
  echo "test-armhf: built, but the tests were not run: this machine cannot start" \
    "armhf child programs through qemu-arm (see above)" >&2
  exit 0
fi
exit "$status"
