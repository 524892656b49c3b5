# Cross build for 64-bit ARM with Debian's arm64 compiler.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(TRIPLET aarch64-linux-gnu)
set(DEBIAN_ARCHITECTURE arm64)
set(SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/arm64-sysroot)
include(${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake)
