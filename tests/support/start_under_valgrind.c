/* Stands where a build has the program, in a build directory that tools/valgrind_device_root.sh has put together: starts that
 * program, which lies beside it, under valgrind. What valgrind finds lies where the sanitizers put theirs, and a test that
 * leaves something there fails. Inside of a device root. */
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#define BUILD "/.harness/build"

int main(void) {
  setenv("VALGRIND_LIB", BUILD "/valgrind", 1);
  setenv("VALGRIND_LAUNCHER", BUILD "/recovery-loader", 1);
  /* What the C library keeps until the end is no leak; a child that becomes a tool is judged until then. A debugger's pipes
   * would lie in the device's /tmp, where tests look. */
  execl(BUILD "/valgrind/memcheck-amd64-linux", "valgrind", "--tool=memcheck", "--quiet", "--vgdb=no",
        "--leak-check=full", "--show-leak-kinds=definite", "--errors-for-leak-kinds=definite", "--track-fds=no",
        "--child-silent-after-fork=no", "--log-file=/.harness/sanitizer.%p", BUILD "/valgrind/recovery-loader", (char*)NULL);
  perror("start_under_valgrind");
  return 125;
}
