#!/bin/bash
# check_arm_start.sh PROGRAM [ARCHITECTURE]: the cross-built program (armel, armhf or arm64) starts and answers at its prompt
# under qemu-user. There is no console port, so it stays on the descriptors it was given.
set -eu
program=$1
case ${2:-armel} in
    armel) emulator=qemu-arm-static triplet=arm-linux-gnueabi sysroot=$PWD/build/arm-sysroot ;;
    armhf) emulator=qemu-arm-static triplet=arm-linux-gnueabihf sysroot=$PWD/build/armhf-sysroot ;;
    arm64) emulator=qemu-aarch64-static triplet=aarch64-linux-gnu sysroot=$PWD/build/arm64-sysroot ;;
    *) echo "check_arm_start: no such processor: $2" >&2; exit 2 ;;
esac
output=$(mktemp)
trap 'rm -f "$output"' EXIT
coproc shell {
    exec timeout 60 $emulator -L /usr/$triplet -E LD_LIBRARY_PATH="$sysroot/lib/$triplet" "$program" 2>&1
}
running=$shell_PID
printf 'version\rverbose 5\rset bootenv bootb 3\r' >&"${shell[1]}"
# The shell never ends by itself: it is stopped when it has answered.
while IFS= read -r line; do
    printf '%s\n' "$line"
    case $line in "ERROR: Invalid parameter '3'"*) break ;; esac
done <&"${shell[0]}" >"$output"
kill "$running" 2>/dev/null || true
cat "$output"
grep -q '^CLI> version' "$output"
grep -q '^Zentavio Solvantra Recovery Loader v3.1.0.0R1 (' "$output"
grep -q '^verbosity is 5' "$output"
grep -q "^ERROR: Invalid parameter '3'" "$output"
