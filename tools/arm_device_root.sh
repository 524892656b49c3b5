#!/bin/sh
# arm_device_root.sh: puts together build/arm-root, a build directory for the console tests whose program is the device's
# own, run by the emulator: pytest --build=build/arm-root tests/console. Wants the presets release and arm to be built. The
# stand-in that is preloaded into the program is built for the device, too; the helpers beside it are this machine's.
set -eu
cd "$(dirname "$0")/.."
root=build/arm-root libraries=/usr/arm-linux-gnueabi/lib
rm -rf $root
mkdir -p $root/tests $root/emulated/lib
cp build/release/tests/enter_root build/release/tests/recorder build/arm/tests/libkernel_stand_in.so $root/tests
cp build/release/tests/start_emulated $root/recovery-loader
cp build/arm/recovery-loader $root/emulated
cp "$(command -v qemu-arm-static)" $root
cp -L $libraries/ld-linux.so.3 $libraries/libc.so.6 build/arm-sysroot/lib/arm-linux-gnueabi/libz.so.1 $root/emulated/lib
