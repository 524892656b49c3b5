// All output of the shell goes through log_printf(), with a level. While the console port carries a transfer,
// messages are collected in a file and printed afterwards.
#pragma once

#include <cstdarg>
#include <cstdint>

enum log_levels : unsigned {
  level_silent = 0,
  level_plain = 1,     // prompts, results, listings
  level_note = 2,      // "NOTE: "
  level_error = 3,     // "ERROR: "
  level_info = 4,      // "INFO: "
  level_progress = 5,  // "PROGRESS: "
  level_verbose = 6,   // "VERBOSE: ", each external command line before it runs
  level_trace = 7,     // "TRACE: ", entries of functions
};

/// Verbosity: messages above this level are dropped when they are logged. 3 at start.
extern uint32_t log_level;
/// 1 = messages go to the console, 0 = suspended into "/tmp/recovery.log".
extern int32_t log_state;

/// Prints one message with the prefix of its level (none for 0, 1 and everything above 7) if `log_level`
/// admits it. No newline is added. A message that cannot be written is lost.
void log_printf(unsigned level, const char* format, ...) __attribute__((format(printf, 2, 3)));
void log_vprintf(unsigned level, const char* format, va_list args) __attribute__((format(printf, 2, 0)));

/// From now on messages are collected in "/tmp/recovery.log", which starts empty.
void log_suspend();
/// Messages go to the console again; what was collected is printed there in order and the file is removed.
void log_resume();
