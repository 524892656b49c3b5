// Words are matched without regard to case, and may be cut short as long as they stay unique.
#include "cli/dispatch.h"

#include <cctype>
#include <cstring>

#include "cli/command_tree.h"
#include "commands/command.h"
#include "util/log.h"

namespace {

void tokenize(char* line) {
  constexpr const char* separators = " \t";
  ntokens = 0;
  for (char* word = strtok(line, separators); word != nullptr; word = strtok(nullptr, separators)) {
    if (word[0] == '#' || word[0] == ';' || ntokens == tokens_max) {
      return;
    }
    tokens[ntokens++] = word;
  }
}

int fold_case(char character) {
  return tolower(static_cast<unsigned char>(character));
}

// Length of `word` when it is a prefix of `text` without regard to case, else 0.
size_t prefix_length(const char* word, const char* text) {
  size_t length = 0;
  while (word[length] != '\0') {
    if (text[length] == '\0' || fold_case(word[length]) != fold_case(text[length])) {
      return 0;
    }
    ++length;
  }
  return length;
}

bool is_prefix(const char* word, const char* text) {
  return prefix_length(word, text) != 0;
}

bool is_whole(const char* word, const char* text) {
  const size_t length = prefix_length(word, text);
  return length != 0 && text[length] == '\0';
}

// Counts the entries whose name or alias `matches` the word, up to `most`; `*last` is the last of them.
template <typename Matches>
int count_matches(const command_record* table, int32_t count, const char* word, int most, Matches matches,
                  const command_record** last) {
  int found = 0;
  for (const command_record* entry = table; entry != table + count && found < most; ++entry) {
    if (entry->handler != cmd_not_yet_implemented &&
        (matches(word, entry->name) || matches(word, entry->alias))) {
      *last = entry;
      ++found;
    }
  }
  return found;
}

// The entry that `word` selects, or null after an error. A whole word beats abbreviations.
const command_record* select_entry(const command_record* table, int32_t count, const char* word) {
  const command_record* entry = nullptr;
  if (count_matches(table, count, word, 1, is_whole, &entry) == 1) {
    return entry;
  }
  switch (count_matches(table, count, word, 2, is_prefix, &entry)) {
    case 0:
      log_printf(level_error, "Unknown Command\n");
      return nullptr;
    case 1:
      return entry;
    default:
      log_printf(level_error, "Ambiguous Command\n");
      return nullptr;
  }
}

}  // namespace

void cli_execute_line(char* line) {
  tokenize(line);
  const command_record* table = commands_top;
  int32_t count = commands_top_count;
  const char* word = token_shift();
  if (word == nullptr) {
    return;
  }
  for (;;) {
    const command_record* entry = select_entry(table, count, word);
    if (entry == nullptr) {
      return;
    }
    if (entry->handler != nullptr) {
      entry->handler();
      return;
    }
    table = entry->subtable;
    count = entry->subtable_count;
    word = token_shift();
    if (word == nullptr) {
      helper_incomplete_command();
      return;
    }
  }
}
