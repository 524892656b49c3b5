#!/bin/bash
# check_device_binary.sh PROGRAM: the device has the C library and zlib, and 128 KiB for this program. It is position
# independent, nothing in it is writable and executable, what the dynamic linker writes is read-only before main, and stack
# and copies are guarded (cmake/hardening.cmake).
set -eu
program=$1
readelf=arm-linux-gnueabi-readelf
complain() {
    echo "$1" >&2
    exit 1
}
# Whole outputs are compared: a tool that writes into a closed pipe would fail the check by itself.
header=$($readelf -hW "$program") dynamic=$($readelf -dW "$program") segments=$($readelf -lW "$program")
imports=$($readelf --dyn-syms -W "$program")
has() { grep -Eq "$2" <<<"$1"; }

needed=$(sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' <<<"$dynamic")
echo "needs: $(echo $needed)"
[ -n "$needed" ] || complain "the C library is linked in, the device's own is not used"
for library in $needed; do
    case $library in
        # The dynamic linker, a part of the C library, has the stack's guard.
        libc.so.* | libz.so.* | ld-linux*) ;;
        *) complain "$library is not on the device" ;;
    esac
done
! has "$dynamic" '\((RPATH|RUNPATH)\)' || complain "looks for libraries in a directory of the build machine"

has "$header" 'Type: +DYN \(Position-Independent Executable file\)' || complain "not position independent"
has "$dynamic" 'FLAGS_1.* PIE' || complain "not marked as a position independent program"
has "$segments" '^ +GNU_RELRO' || complain "no RELRO: what the dynamic linker writes stays writable"
has "$dynamic" '\(FLAGS\).* BIND_NOW' || complain "functions are bound late, so their table stays writable"
! has "$dynamic" '\(TEXTREL\)' || complain "code is relocated"
has "$segments" '^ +GNU_STACK .* RW +0x' || complain "the stack is executable"
! has "$segments" '^ +LOAD .* RWE +0x' || complain "a segment is writable and executable"
has "$imports" 'UND +__stack_chk_fail@' || complain "no stack protector"
for function in __vsnprintf_chk __memcpy_chk __read_chk; do
    has "$imports" "UND +$function@" || complain "no FORTIFY: $function is not used"
done

stripped=$(mktemp)
trap 'rm -f "$stripped"' EXIT
arm-linux-gnueabi-strip -o "$stripped" "$program"
size=$(stat -c %s "$stripped")
echo "size stripped: $size bytes"
[ "$size" -le 131072 ] || complain "larger than 128 KiB"
