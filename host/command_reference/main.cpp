// Writes the command reference, docs/commands.md, from the tables that the shell itself looks commands up in:
//
//   build/release/command_reference >docs/commands.md
#include <cstdio>
#include <cstring>
#include <string>

#include "cli/command_tree.h"

namespace {

constexpr const char* preface =
    "# Commands\n"
    "\n"
    "Written by `command_reference` from the shell's own tables; `./test unit` fails when the two differ.\n"
    "Words in `<...>` stand for values, `[...]` may be left out, `|` separates alternatives. Command words "
    "may\n"
    "be cut short where no other entry begins so, in capitals or not. `help -v` shows this at the prompt.\n";

// A help text goes on in lines of its own that are indented for the console.
void print_help(const char* help) {
  for (const char* line = help; *line != '\0';) {
    line += strspn(line, " ");
    const size_t length = strcspn(line, "\n");
    const bool first = line == help;
    printf("%s%.*s\n", first ? "" : "    ", static_cast<int>(length), line);
    line += length + (line[length] == '\n' ? 1 : 0);
    if (first && *line != '\0') {
      printf("\n");
    }
  }
}

void print_leaf(const std::string& path, const command_record& leaf) {
  const bool bare = leaf.usage[0] == '\0';
  printf("\n### `%s%s%s%s`\n\n", path.c_str(), leaf.name, bare ? "" : " ", leaf.usage);
  print_help(leaf.help);
  if (leaf.alias[0] != '\0') {
    printf("\nAlso: `%s%s`\n", path.c_str(), leaf.alias);
  }
}

void print_leaves(const std::string& path, const command_record* table, int32_t count) {
  for (const command_record* entry = table; entry != table + count; ++entry) {
    if (entry->handler == nullptr) {
      print_leaves(path + entry->name + " ", entry->subtable, entry->subtable_count);
    } else if (entry->handler != cmd_not_yet_implemented) {
      print_leaf(path, *entry);
    }
  }
}

}  // namespace

int main() {
  printf("%s\n## The shell itself\n", preface);
  for (const command_record& entry : commands_top) {
    if (entry.handler != nullptr && entry.handler != cmd_not_yet_implemented) {
      print_leaf("", entry);
    }
  }
  for (const command_record& entry : commands_top) {
    if (entry.handler == nullptr && entry.subtable_count != 0) {
      printf("\n## %s\n", entry.name);
      print_leaves(std::string(entry.name) + " ", entry.subtable, entry.subtable_count);
    }
  }
  return fflush(stdout) == 0 && ferror(stdout) == 0 ? 0 : 1;
}
