# Cross build for ARMv7 with a floating point unit, with Debian's armhf compiler.
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(TRIPLET arm-linux-gnueabihf)
set(DEBIAN_ARCHITECTURE armhf)
set(SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/armhf-sysroot)
include(${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake)
