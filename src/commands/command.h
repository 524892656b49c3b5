// What a command of the shell is: its record in the tables, the words that it takes its parameters from, and
// how it reports.
#pragma once

#include <cstdint>

/// One entry of a command table. Seven words of 32 bits on the device.
struct command_record {
  const char* name;                          // lower case
  const char* alias = "";                    // selects the same entry; "" for none
  const char* usage = "";                    // leaf: its parameters; subtable: its path with a trailing blank
  const char* help = "";                     // further lines start with six blanks
  void (*handler)() = nullptr;               // null for an entry that opens a subtable
  const command_record* subtable = nullptr;  // null for a leaf
  int32_t subtable_count = 0;                // 0 for a leaf
};
static_assert(sizeof(void*) != 4 || sizeof(command_record) == 28);

/// Result: how many entries a table has.
template <int32_t Count>
constexpr int32_t command_count(const command_record (&/*table*/)[Count]) {
  return Count;
}

/// Words of the current line that nobody has taken yet, in typed order. They point into the line and stay
/// valid until the next one is read.
constexpr int32_t tokens_max = 20;
extern char* tokens[tokens_max];
extern int32_t ntokens;

/// Result: the first word, which is taken out of `tokens`; null when none is left.
char* token_shift();
/// Result: the first word, which stays; null when none is left.
const char* token_first();

/// Ends a long operation: "Done: SUCCESS" or "Done: FAILURE".
void _print_done_success_failure(bool ok);

/// Handler of entries that are in the tables but not in the shell; matching and help pass over them.
void cmd_not_yet_implemented();

/// The three refusals that handlers share.
void helper_invalid_parameter(const char* word);
void helper_extraneous_parameter(const char* word);
void helper_incomplete_command();
