// What Ctrl-C and Ctrl-\ do: nothing to the shell, the default to the tools of the capturing runners, and
// a flag for the long loops that ask for one.
#pragma once

#include <csignal>

/// Set by the test interrupt handler; polled by long loops.
extern volatile sig_atomic_t test_interrupted;

/// Each sets one signal's action with an empty mask and no flags. Result: true, or false after a note with the
/// function's name and the system's error text.
bool sigint_install_ignore();
bool sigint_install_default();
/// Clears `test_interrupted`, then lets SIGINT set it.
bool sigint_install_test_interrupt();
bool sigquit_install_ignore();

/// While it lives, Ctrl-C reaches neither the shell nor the tools that it starts; what was pressed meanwhile
/// counts afterwards. For steps that have to be taken whatever happens.
class sigint_deferred {
 public:
  sigint_deferred();
  sigint_deferred(const sigint_deferred&) = delete;
  sigint_deferred& operator=(const sigint_deferred&) = delete;
  ~sigint_deferred();

 private:
  sigset_t previous_ = {};
};

/// While it lives, writing to a pipe whose reader has died fails with EPIPE instead of ending the shell.
/// Tools started meanwhile would inherit that; start them before or after.
class sigpipe_ignored {
 public:
  sigpipe_ignored();
  sigpipe_ignored(const sigpipe_ignored&) = delete;
  sigpipe_ignored& operator=(const sigpipe_ignored&) = delete;
  ~sigpipe_ignored();

 private:
  struct sigaction previous_ = {};
};
