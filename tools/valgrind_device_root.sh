#!/bin/sh
# valgrind_device_root.sh: puts together build/valgrind-root, a build directory for the console tests whose program runs under
# Debian's valgrind: pytest --build=build/valgrind-root -m "not not_emulated" tests/console. Wants the preset release to be built.
set -eu
cd "$(dirname "$0")/.."
root=build/valgrind-root
rm -rf $root
mkdir -p $root/tests $root/valgrind
cp build/release/tests/enter_root build/release/tests/recorder build/release/tests/libkernel_stand_in.so $root/tests
cp build/release/tests/start_under_valgrind $root/recovery-loader
cp build/release/recovery-loader $root/valgrind
cp /usr/libexec/valgrind/memcheck-amd64-linux /usr/libexec/valgrind/vgpreload_*amd64-linux.so /usr/libexec/valgrind/*.supp \
    $root/valgrind
