#!/bin/sh
# check_device_binary.sh PROGRAM: the device has the C library and zlib, and 128 KiB for this program.
set -eu
program=$1
needed=$(arm-linux-gnueabi-readelf -d "$program" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
echo "needs: $(echo $needed)"
for library in $needed; do
    case $library in
        libc.so.* | libz.so.* | ld-linux*) ;;
        *) echo "$library is not on the device" >&2; exit 1 ;;
    esac
done
stripped=$(mktemp)
trap 'rm -f "$stripped"' EXIT
arm-linux-gnueabi-strip -o "$stripped" "$program"
size=$(stat -c %s "$stripped")
echo "size stripped: $size bytes"
[ "$size" -le 131072 ] || { echo "larger than 128 KiB" >&2; exit 1; }
