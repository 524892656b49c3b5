// What kesto tells on standard error, and the exit statuses that belong to it.
#pragma once

enum exit_statuses : int {
  exit_success = 0,
  exit_failed = 1,  // the input or the system is at fault
  exit_usage = 2,   // the command line is
};

/// Prints one line "kesto: TEXT"; the format carries no newline. Result: exit_failed.
int report_error(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Prints one line "kesto: warning: TEXT".
void report_warning(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Prints one line "kesto: TEXT (see 'kesto COMMAND --help')"; `command` may be empty. Result: exit_usage.
int report_usage(const char* command, const char* format, ...) __attribute__((format(printf, 2, 3)));
