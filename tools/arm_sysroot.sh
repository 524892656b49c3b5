#!/bin/sh
# arm_sysroot.sh DIRECTORY: Debian's zlib for the device's processor, unpacked there once.
set -eu
sysroot=$1
"$(dirname "$0")/foreign_packages.py" armel "$sysroot" zlib1g zlib1g-dev
# The development package's link is absolute.
ln -sf ../../../lib/arm-linux-gnueabi/libz.so.1 "$sysroot/usr/lib/arm-linux-gnueabi/libz.so"
