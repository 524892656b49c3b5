// Reads the console with poll() and read(), with the terminal's signals off.
#include "console/transfer_end.h"

#include <poll.h>
#include <unistd.h>

#include <ctime>

#include "console/console.h"
#include "util/elapsed.h"
#include "util/log.h"

namespace {

constexpr int silence_ms = 1000;
constexpr long note_ms = 3000;

// How a person is told from an image. As long as the sender sends, any byte can be the 3 of Ctrl-C, so the
// terminal's signals are off and a Ctrl-C counts only when it stands alone: silence before it, silence behind
// it. Three of them end the wait, when no other byte comes between. An image at line rate has no such silence
// anywhere: at 9600 bps, the slowest rate, a byte takes one millisecond, and a UART hands on what its FIFO
// holds every 15 milliseconds at the latest. A person, and a key that is held down and repeats 30 times a
// second, are slower than that. Noise gives a byte now and then; three times the same one, on end, it does
// not.
constexpr int alone_ms = 20;
constexpr int presses_needed = 3;
constexpr char ctrl_c = 3;

// Result: false when nothing has come for `milliseconds`.
bool comes_within(int milliseconds, int fd = STDIN_FILENO) {
  pollfd input = {.fd = fd, .events = POLLIN, .revents = 0};
  return poll(&input, 1, milliseconds) > 0;
}

long elapsed_since(const timespec& start) {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return timespec_elapsed_ms(start, now);
}

void discard_until_silent() {
  timespec start = {};
  clock_gettime(CLOCK_MONOTONIC, &start);
  bool noted = false;
  int presses = 0;
  bool pressed = false;  // the last byte was a Ctrl-C, with silence before it
  for (;;) {
    const bool pause = !comes_within(alone_ms);
    presses += pressed && pause ? 1 : 0;
    if (presses == presses_needed || (pause && !comes_within(silence_ms - alone_ms))) {
      return;
    }
    char bytes[256];
    const ssize_t got = read(STDIN_FILENO, bytes, sizeof bytes);
    if (got <= 0) {
      return;
    }
    pressed = pause && got == 1 && bytes[0] == ctrl_c;
    presses = pressed ? presses : 0;
    if (!noted && elapsed_since(start) >= note_ms) {
      noted = true;
      log_printf(level_note, "Waiting for the sender to stop (Ctrl-C, pressed %i times, ends this)\n",
                 presses_needed);
    }
  }
}

}  // namespace

bool tty_sender_goes_on(const tty_port& port) {
  return comes_within(alone_ms, port.fd);
}

void tty_end_transfer(const tty_port& port, bool complete) {
  if (complete || port.port != tty_cli.port) {
    return;
  }
  tty_set_isig(0);  // they are off at the prompt, which is next
  discard_until_silent();
}
