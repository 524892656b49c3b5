// What Ctrl-C and Ctrl-\ do. The shell ignores them, Ctrl-C ends the tools of the capturing runners, and a
// long loop is told of it by a flag.
#pragma once

#include <csignal>

/// Set by the test interrupt handler; polled by long loops.
extern volatile sig_atomic_t test_interrupted;
/// For what runs inside a command that may or may not be one that Ctrl-C ends. Result: true when the test
/// interrupt handler is installed and has been called.
bool sigint_interrupted();

/// Each sets one signal's action with an empty mask and no flags. Result: true, or false after a note with
/// the function's name and the system's error text.
bool sigint_install_ignore();
bool sigint_install_default();
/// Clears `test_interrupted`, then lets SIGINT set it.
bool sigint_install_test_interrupt();
bool sigquit_install_ignore();

/// Start-up: the signals that the shell and its tools rely on have their default actions, and none is
/// blocked, whatever the parent left. With SIGCHLD ignored, for one, every tool would seem to have failed.
void signals_forget_inherited();

/// While it lives, Ctrl-C reaches neither the shell nor the tools that it starts; it takes effect afterwards.
/// For steps that must be taken whatever happens.
class sigint_deferred {
 public:
  sigint_deferred();
  sigint_deferred(const sigint_deferred&) = delete;
  sigint_deferred& operator=(const sigint_deferred&) = delete;
  ~sigint_deferred();

  /// Sleeps, and lets a Ctrl-C through meanwhile, one that came before as well. Result: false when that or
  /// another signal has ended the sleep.
  bool sleep(unsigned seconds) const;

 private:
  sigset_t previous_ = {};
};

/// While it lives, writing to a pipe that nobody reads any more fails with EPIPE instead of ending the shell.
/// Tools do not inherit that.
class sigpipe_ignored {
 public:
  sigpipe_ignored();
  sigpipe_ignored(const sigpipe_ignored&) = delete;
  sigpipe_ignored& operator=(const sigpipe_ignored&) = delete;
  ~sigpipe_ignored();

 private:
  struct sigaction previous_ = {};
};
