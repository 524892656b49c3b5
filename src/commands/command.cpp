// The words of the line, and the lines that every command reports with.
#include "commands/command.h"

#include "util/log.h"

char* tokens[tokens_max];
int32_t ntokens = 0;

char* token_shift() {
  if (ntokens < 1) {
    return nullptr;
  }
  char* first = tokens[0];
  --ntokens;
  for (int32_t i = 0; i < ntokens; ++i) {
    tokens[i] = tokens[i + 1];
  }
  return first;
}

const char* token_first() {
  return ntokens < 1 ? nullptr : tokens[0];
}

void _print_done_success_failure(bool ok) {
  log_printf(level_plain, "Done: %s\n", ok ? "SUCCESS" : "FAILURE");
}

void cmd_not_yet_implemented() {
  log_printf(level_error, "This function has not yet been implemented!\n");
}

void helper_invalid_parameter(const char* word) {
  log_printf(level_error, "Invalid parameter '%s'\n", word);
}

void helper_extraneous_parameter(const char* word) {
  log_printf(level_error, "Extraneous parameter '%s'\n", word);
}

void helper_incomplete_command() {
  log_printf(level_error, "Incomplete command\n");
}
