// A command line that /bin/sh runs in a process of its own: what every runner and every pipe starts and waits
// for.
#pragma once

#include <sys/types.h>

/// What the command gets instead of the shell's own.
struct command_setup {
  int input = -1;          // descriptor for its standard input; -1: the shell's own
  int output = -1;         // descriptor for its standard output; -1: the shell's own
  bool own_group = false;  // a process group of its own, which the terminal's Ctrl-C does not reach
};

/// Starts `line`. The command has the shell's signal mask, ignores what the shell ignores and has the default
/// action for every other signal, and for SIGPIPE always; all of that is in force before any signal can reach
/// it. The shell itself keeps its settings: a Ctrl-C meanwhile reaches shell and command alike, unless
/// `own_group` is set.
/// Result: the process, or -1 with errno; nothing is logged.
pid_t command_start(const char* line, const command_setup& setup = {});

/// Waits for a process, also when a signal interrupts the wait. Result: its wait status, -1 with errno.
int command_wait(pid_t process);
