#!/bin/sh
# check_arm_start.sh PROGRAM: the cross-built program starts and answers at its prompt under qemu-user. There is no
# console port, so it stays on the descriptors it was given.
set -eu
output=$(mktemp)
sysroot=$PWD/build/arm-sysroot
trap 'rm -f "$output"' EXIT
# The end of input does not end the shell: it is stopped once it had time to answer.
printf 'version\rverbose 5\rset bootenv bootb 3\r' |
    timeout 10 qemu-arm-static -L /usr/arm-linux-gnueabi -E LD_LIBRARY_PATH="$sysroot/lib/arm-linux-gnueabi" "$1" >"$output" 2>&1 || true
cat "$output"
grep -q '^CLI> version' "$output"
grep -q '^Zentavio Solvantra Recovery Loader v3.1.0.0R1 (' "$output"
grep -q '^verbosity is 5' "$output"
grep -q "^ERROR: Invalid parameter '3'" "$output"
