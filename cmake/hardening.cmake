# What makes a mistake in the device's program an end of the program and not of the device: position independent, nothing
# both writable and executable, relocated before main and read-only from then on, return addresses and the C library's
# copies guarded. tools/check_device_binary.sh holds the program that ships to it.

# The sanitizers watch the same and more, and want the C library's own functions: only what ships is built so.
target_compile_options(device_options INTERFACE
  -fPIE
  $<$<CONFIG:Release>:-fstack-protector-strong>
  $<$<CONFIG:Release>:-U_FORTIFY_SOURCE> $<$<CONFIG:Release>:-D_FORTIFY_SOURCE=3>
  # One commit gives the same bytes wherever it is built.
  $<$<CONFIG:Release>:-ffile-prefix-map=${CMAKE_SOURCE_DIR}=.>)
target_link_options(device_options INTERFACE -pie -Wl,-z,relro,-z,now,-z,noexecstack)

# Guards cost an eighth of the program in ARM code. In Thumb code, which every ARMv5TE has, it is smaller with them than it
# was without. Only loops over every byte of an image are better off in ARM code.
set(arm_code "")
if(CMAKE_SYSTEM_PROCESSOR STREQUAL armv5te)
  target_compile_options(device_options INTERFACE -mthumb)
  set(arm_code -marm)
endif()
