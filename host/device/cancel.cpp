// SIGINT and SIGTERM set a flag and wake whoever waits, through a pipe.
#include "device/cancel.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <csignal>

namespace {

int pipe_ends[2] = {-1, -1};
std::atomic<bool> noted = false;

void note_signal(int signal_number) {
  if (noted.exchange(true)) {
    _exit(128 + signal_number);
  }
  // A full pipe is impossible: this is the only byte. Its failure has no remedy inside a handler.
  [[maybe_unused]] const ssize_t written = write(pipe_ends[1], "c", 1);
}

}  // namespace

void cancel_take_signals() {
  if (pipe_ends[0] >= 0 || pipe2(pipe_ends, O_CLOEXEC) != 0) {
    return;
  }
  struct sigaction action = {};
  action.sa_handler = note_signal;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  // A reader of our output that goes away is an error of the write, like any other.
  signal(SIGPIPE, SIG_IGN);
}

int cancel_descriptor() {
  return pipe_ends[0];
}

bool cancel_requested() {
  return noted;
}
