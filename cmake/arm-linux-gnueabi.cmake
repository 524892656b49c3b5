# Cross build for the device's processor with Debian's armel compiler.
set(CMAKE_SYSTEM_PROCESSOR armv5te)
set(TRIPLET arm-linux-gnueabi)
set(DEBIAN_ARCHITECTURE armel)
set(SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/arm-sysroot)
include(${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake)
