#!/bin/sh
# arm_sysroot.sh DIRECTORY [ARCHITECTURE]: Debian's zlib for the device's processor (armel), or for another one (armhf, arm64),
# unpacked there once.
set -eu
sysroot=$1 architecture=${2:-armel}
case $architecture in
    armel) triplet=arm-linux-gnueabi ;;
    armhf) triplet=arm-linux-gnueabihf ;;
    arm64) triplet=aarch64-linux-gnu ;;
    *) echo "arm_sysroot: no such processor: $architecture" >&2; exit 2 ;;
esac
"$(dirname "$0")/foreign_packages.py" "$architecture" "$sysroot" zlib1g zlib1g-dev
# The development package's link is absolute.
ln -sf ../../../lib/$triplet/libz.so.1 "$sysroot/usr/lib/$triplet/libz.so"
