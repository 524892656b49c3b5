// Runs the loopback test of the serial lines on the board it is put on:
//
//   loopback LEVEL SIZE SPEED LOCAL [REMOTE]
//
// Shows what the test says at this verbosity, which records it left open, and last "result 1".
#include "tty/loopback.h"

#include <cstdio>
#include <cstdlib>

#include "util/log.h"

namespace {

tty_port closed_port(const char* number, const char* speed) {
  tty_port port = tty_cli;
  port.fd = -1;
  port.port = atoi(number);
  port.speed = static_cast<uint32_t>(atoi(speed));
  return port;
}

void show_left_open(const tty_port& port) {
  if (port.fd >= 0) {
    printf("%s%i left open\n", port.device, port.port);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5 && argc != 6) {
    fprintf(stderr, "usage: loopback LEVEL SIZE SPEED LOCAL [REMOTE]\n");
    return 2;
  }
  const bool has_remote = argc == 6;
  log_level = static_cast<uint32_t>(atoi(argv[1]));
  tty_port local = closed_port(argv[4], argv[3]);
  tty_port remote = closed_port(has_remote ? argv[5] : "0", argv[3]);
  const int result = tty_test_loopback(atoi(argv[2]), &local, has_remote ? &remote : nullptr);
  show_left_open(local);
  show_left_open(remote);
  printf("result %d\n", result);
  return 0;
}
