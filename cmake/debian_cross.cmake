# Cross build with one of Debian's compilers: what the toolchain files have in common. They set before
#   TRIPLET               the prefix of the compiler and of its library folder
#   DEBIAN_ARCHITECTURE   what Debian calls the processor
#   SYSROOT               where zlib was put by tools/arm_sysroot.sh
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${TRIPLET}-g++)
list(APPEND CMAKE_FIND_ROOT_PATH /usr/${TRIPLET} ${SYSROOT})
set(CMAKE_LIBRARY_ARCHITECTURE ${TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
