/* Stands where a build has the program, in a build directory for the device's processor that tools/arm_device_root.sh has
 * put together: starts that program, which lies beside it, by the emulator, which does so, too. Inside of a device root. */
#include <stdio.h>
#include <unistd.h>

#define BUILD "/.harness/build"

int main(void) {
  /* Only what lies below BUILD "/emulated" is found there instead of in the root: the C library and zlib. */
  execl(BUILD "/qemu-arm-static", "recovery-loader", "-L", BUILD "/emulated", BUILD "/emulated/recovery-loader",
        (char*)NULL);
  perror("start_emulated: " BUILD "/qemu-arm-static");
  return 125;
}
