#!/bin/sh
# arm_sysroot.sh DIRECTORY: unpacks Debian's zlib for the device's processor there, once. The packages are fetched with
# package lists of their own, so neither root nor a foreign architecture on this machine is needed.
set -eu
sysroot=$1
[ -e "$sysroot/complete" ] && exit 0
rm -rf "$sysroot"
mkdir -p "$sysroot/apt/lists/partial" "$sysroot/apt/cache/archives/partial"
cd "$sysroot/apt"
apt() {
    apt-get -qq -o APT::Architecture=armel -o APT::Architectures=armel -o Dir::State::lists="$sysroot/apt/lists" \
        -o Dir::Cache="$sysroot/apt/cache" -o APT::Sandbox::User="$(id -un)" "$@"
}
echo "setup: fetching zlib for armel"
apt update
apt download zlib1g zlib1g-dev
for package in ./*.deb; do
    dpkg-deb -x "$package" "$sysroot"
done
# The development package's link is absolute.
ln -sf ../../../lib/arm-linux-gnueabi/libz.so.1 "$sysroot/usr/lib/arm-linux-gnueabi/libz.so"
rm -rf "$sysroot/apt"
touch "$sysroot/complete"
