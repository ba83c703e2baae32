#!/usr/bin/env bash
# Runs a command in which armhf programs start as if native: in a user and
# mount namespace of its own, binfmt_misc hands every 32-bit ARM executable to
# qemu-arm. Tests start the layer's tools as child programs, and the loader
# probe re-executes itself under a package name, so prefixing the first program
# with the emulator is not enough. The registration is private to the
# namespace (Linux 6.7 and later); the machine's own binfmt_misc is untouched.
#   scripts/armhf-run.sh ctest --preset armhf
# Exits 77 without running the command when no such namespace can be made.
set -euo pipefail

if [ "${1:-}" != "--inside" ]; then
  if ! unshare --user --map-root-user --mount true 2>/dev/null; then
    echo "armhf-run: cannot make a user and mount namespace" >&2
    exit 77
  fi
  exec unshare --user --map-root-user --mount "$0" --inside "$@"
fi
shift

if ! mount -t binfmt_misc binfmt_misc /proc/sys/fs/binfmt_misc 2>/dev/null; then
  echo "armhf-run: binfmt_misc cannot be mounted in a namespace (Linux before 6.7?)" >&2
  exit 77
fi
qemu=$(command -v qemu-arm)
# ELF, 32-bit, little-endian, executable or shared object, machine ARM (40).
# P keeps argv[0] (the probe is named by it), F opens qemu-arm now.
magic='\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x28\x00'
mask='\xff\xff\xff\xff\xff\xff\xff\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'
printf ':velour-armhf:M::%s:%s:%s:PF' "$magic" "$mask" "$qemu" \
  > /proc/sys/fs/binfmt_misc/register
export QEMU_LD_PREFIX=${QEMU_LD_PREFIX:-/usr/arm-linux-gnueabihf}
exec "$@"
