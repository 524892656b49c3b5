// Sets SIGINT, SIGQUIT and SIGPIPE with sigaction(); blocks SIGINT with sigprocmask(), and not while
// pselect() waits.
#include "util/signals.h"

#include <sys/select.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <initializer_list>

#include "util/log.h"

volatile sig_atomic_t test_interrupted = 0;

namespace {

void sigint_test_interrupt_handler(int /*signal*/) {
  test_interrupted = 1;
}

bool set_action(int signal, void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  return sigaction(signal, &action, nullptr) == 0;
}

}  // namespace

bool sigint_interrupted() {
  struct sigaction action = {};
  return test_interrupted != 0 && sigaction(SIGINT, nullptr, &action) == 0 &&
         action.sa_handler == sigint_test_interrupt_handler;
}

bool sigint_install_ignore() {
  if (!set_action(SIGINT, SIG_IGN)) {
    log_printf(level_note, "%s: Failed to ignore sigint handler, error=%s\n", __func__, strerror(errno));
    return false;
  }
  return true;
}

bool sigint_install_default() {
  if (!set_action(SIGINT, SIG_DFL)) {
    log_printf(level_note, "%s: Failed to install sigint handler, error=%s\n", __func__, strerror(errno));
    return false;
  }
  return true;
}

bool sigint_install_test_interrupt() {
  test_interrupted = 0;
  if (!set_action(SIGINT, sigint_test_interrupt_handler)) {
    log_printf(level_note, "%s: Failed to install sigint handler, error=%s\n", __func__, strerror(errno));
    return false;
  }
  return true;
}

bool sigquit_install_ignore() {
  if (!set_action(SIGQUIT, SIG_IGN)) {
    log_printf(level_note, "%s: Failed to ignore sigquit handler, error=%s\n", __func__, strerror(errno));
    return false;
  }
  return true;
}

void signals_forget_inherited() {
  // To wait for a tool; for a tool to end with its reader, when asked to, after a time.
  for (const int signal : {SIGCHLD, SIGPIPE, SIGTERM, SIGALRM}) {
    set_action(signal, SIG_DFL);
  }
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

sigint_deferred::sigint_deferred() {
  sigset_t interrupt;
  sigemptyset(&interrupt);
  sigaddset(&interrupt, SIGINT);
  sigprocmask(SIG_BLOCK, &interrupt, &previous_);
}

sigint_deferred::~sigint_deferred() {
  sigprocmask(SIG_SETMASK, &previous_, nullptr);
}

bool sigint_deferred::sleep(unsigned seconds) const {
  while (seconds != 0) {
    // The device's time_t has 31 bits for it.
    const unsigned piece = std::min<unsigned>(seconds, INT32_MAX);
    timespec time = {};
    time.tv_sec = static_cast<time_t>(piece);
    if (pselect(0, nullptr, nullptr, nullptr, &time, &previous_) != 0) {
      return false;
    }
    seconds -= piece;
  }
  return true;
}

sigpipe_ignored::sigpipe_ignored() {
  struct sigaction ignore = {};
  ignore.sa_handler = SIG_IGN;
  sigemptyset(&ignore.sa_mask);
  sigaction(SIGPIPE, &ignore, &previous_);
}

sigpipe_ignored::~sigpipe_ignored() {
  sigaction(SIGPIPE, &previous_, nullptr);
}
