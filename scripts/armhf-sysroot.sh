#!/usr/bin/env bash
# Makes the armhf sysroot folder (build-armhf-sysroot/, or $VELOUR_ARMHF_SYSROOT)
# with what the armhf tests link that the cross toolchain does not bring:
# liblog, libutils with what it needs (libcutils, libbase, libbacktrace and
# p7zip's 7z.so that libbacktrace loads) and GoogleTest/GoogleMock, unpacked
# from Debian's armhf packages. The Khronos, picojson and binder headers do not
# depend on the architecture, so the host's are linked in. Safe to run again: it does nothing when the folder is current.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
sysroot=${VELOUR_ARMHF_SYSROOT:-$top/build-armhf-sysroot}
packages=(android-liblog android-liblog-dev libgtest-dev libgmock-dev
          android-libutils android-libutils-dev android-libcutils android-libcutils-dev
          android-libbase android-libbase-dev android-libbacktrace p7zip-full)

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"

# apt can fetch armhf packages only once it knows the architecture. The
# packages are unpacked, never installed: installing them beside the amd64
# ones of the same names would conflict.
if ! dpkg --print-foreign-architectures | grep -qx armhf; then
  $sudo dpkg --add-architecture armhf
fi
# The versions apt offers now, one "name: version" a line; the folder is
# rebuilt when they change.
candidates() {
  apt-cache policy "${packages[@]/%/:armhf}" 2>/dev/null |
    awk '/^[^ ]/ {name = $1} /Candidate:/ && $2 != "(none)" {print name, $2}'
}
# A mirror caught mid-sync fails one list now and then; the packages come from
# the main lists, so a failed update is fatal only if they are still unknown.
wanted=$(candidates)
for try in 1 2 3; do
  [ "$(echo "$wanted" | grep -c .)" -eq ${#packages[@]} ] && break
  echo "armhf-sysroot: updating the package lists for armhf"
  $sudo apt-get update -qq || sleep $((try * 5))
  wanted=$(candidates)
done
if [ "$(echo "$wanted" | grep -c .)" -ne ${#packages[@]} ]; then
  echo "armhf-sysroot: apt offers no armhf build of some of ${packages[*]}" >&2
  exit 1
fi
stamp=$sysroot/.packages
if [ -f "$stamp" ] && [ "$(cat "$stamp")" = "$wanted" ]; then
  exit 0
fi

echo "armhf-sysroot: unpacking ${packages[*]} into $sysroot"
rm -rf "$sysroot"
mkdir -p "$sysroot/debs"
# apt-get download writes into the current folder and, running as root, drops
# privileges to _apt: let it write there.
chmod 777 "$sysroot/debs"
(cd "$sysroot/debs" && apt-get download -qq "${packages[@]/%/:armhf}")
for deb in "$sysroot"/debs/*.deb; do
  dpkg -x "$deb" "$sysroot"
done
rm -rf "$sysroot/debs"

# Architecture-independent headers of the host, each under its own name so
# that no host C library header comes along.
include=$sysroot/usr/include
for h in EGL KHR GLES2 GLES3 picojson.h android/binder android/system; do
  if [ -e "/usr/include/$h" ]; then ln -sfn "/usr/include/$h" "$include/$h"; fi
done
echo "$wanted" > "$stamp"
