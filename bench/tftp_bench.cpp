// Serves FILE as "image" by kesto's TFTP service until standard input ends:
//
//   tftp_bench FILE ADDRESS PORT
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "device/failure.h"
#include "device/tftp_server.h"

int main(int argc, char** argv) {
  if (argc != 4) {
    fprintf(stderr, "usage: tftp_bench FILE ADDRESS PORT\n");
    return 2;
  }
  try {
    const tftp_server server(argv[1], "image", argv[2], static_cast<uint16_t>(strtoul(argv[3], nullptr, 10)));
    puts("serving");
    fflush(stdout);
    char byte = 0;
    while (read(STDIN_FILENO, &byte, 1) > 0) {
    }
    return 0;
  } catch (const device_failure& failure) {
    fprintf(stderr, "tftp_bench: %s\n", failure.what());
    return 1;
  }
}
