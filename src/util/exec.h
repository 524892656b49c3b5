// Running the tools of the root file system: how their command lines are composed, and four ways to run one,
// which differ in what they capture and in what they call success. The lines are run by /bin/sh, the busybox
// shell of the device; "&>" in a line relies on it.
#pragma once

#include <cstddef>

#include "util/text_buffer.h"

/// A command line under composition. 256 bytes hold every line of the shell with ordinary names.
using command_line = text_buffer<256>;
/// The same for lines with names typed by the operator: room for two of 256 characters, all of them escaped.
using long_command_line = text_buffer<1280>;

/// Composes a command line from a printf format. Result: true when `line` holds all of it. A line that does
/// not fit is refused with an error: half a command line may be a valid and very different command.
bool compose_command(command_line& line, const char* format, ...) __attribute__((format(printf, 2, 3)));
bool compose_command(long_command_line& line, const char* format, ...) __attribute__((format(printf, 2, 3)));

/// Runs a command line; its output goes straight to the console. Logs the line at VERBOSE, and on failure
/// an error with the wait status. Result: 0 when the command exited with status 0, else 1.
int exec_system_cmd(const char* command);

/// The same without the error message.
int exec_system_cmd_quiet(const char* command);

/// For callers who only ask whether it worked. Result: true when the command exited with status 0.
inline bool run_command(const char* command) {
  return exec_system_cmd(command) == 0;
}
inline bool run_command_quiet(const char* command) {
  return exec_system_cmd_quiet(command) == 0;
}

/// Runs a command line in a child that reads its standard output and error; with `print` the lines are shown
/// as notes. Result: true when the command exited with status 0 and printed nothing at all. Printed lines are
/// counted in an exit status of 8 bits, so exactly 256 lines pass for silence. A line too long for the runner
/// is refused with an error and not run.
bool exec_system_cmd_check_stderr(const char* command, bool print);

/// Runs a command line in a child that shows its output line by line: a line that contains `print` (if
/// given) as a note when `notes` is set and plainly when not; else a line that contains `dont_print` (if
/// given) not at all; every other line plainly. Result: 0 on success, 1 on failure, -1 when the child was
/// killed by a signal. A line too long for the runner is refused with an error and not run.
int exec_system_cmd_print_with_match(const char* command, const char* print, const char* dont_print,
                                     bool notes);
