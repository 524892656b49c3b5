# Cross build for the device's processor with Debian's armel compiler.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv5te)
set(CMAKE_C_COMPILER arm-linux-gnueabi-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabi-g++)
# zlib, put there by tools/arm_sysroot.sh.
list(APPEND CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabi ${CMAKE_CURRENT_LIST_DIR}/../build/arm-sysroot)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabi)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
# What Debian calls it.
set(DEBIAN_ARCHITECTURE armel)
