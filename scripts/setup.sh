#!/usr/bin/env bash
# Installs every Debian package that the build and the tests need. Safe to run
# again: it installs only what is missing.
set -euo pipefail

packages=(
  build-essential cmake ninja-build python3 pkg-config
  khronos-api libegl-dev libgles-dev libgl-dev
  android-liblog-dev picojson-dev
  android-libutils-dev android-platform-frameworks-native-headers
  libgtest-dev libgmock-dev libbenchmark-dev
  libpng-dev libegl-mesa0 libgl1-mesa-dri
  apitrace piglit python3-pil
  glmark2-es2-x11 xvfb xauth
  clang libclang-rt-dev
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
echo "setup: installing ${missing[*]}"
# A failing list (an added architecture's mirror in the middle of a sync) must
# not stop the install of what the other lists have.
$sudo apt-get update -qq || echo "setup: apt-get update reported errors; installing anyway"
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
