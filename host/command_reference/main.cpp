// Writes the command reference, docs/commands.md, from the tables that the shell itself looks commands up in,
// and from what stands beside the commands' sources, in files *.md: below "## COMMAND" what the command
// changes, how it fails, and an example.
//
//   build/release/command_reference src >docs/commands.md
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "cli/command_tree.h"

namespace {

constexpr const char* preface =
    "# Commands\n"
    "\n"
    "Written by `command_reference` from the shell's own tables and what stands beside its sources; `./test unit`\n"
    "fails when they differ, `./test docs` when an example does not do what stands here. Words in `<...>` stand\n"
    "for values, `[...]` may be left out, `|` separates alternatives. Command words may be cut short where no\n"
    "other entry begins so, in capitals or not. `help -v` shows the list at the prompt.\n"
    "\n"
    "A word that is cut too short is answered by `ERROR: Ambiguous Command`, one that is none by `ERROR: Unknown\n"
    "Command`. A command that works for a while ends with `Done: SUCCESS` or `Done: FAILURE`.\n"
    "The images of the examples are made by `kesto image build`, and the device fetches them from 10.0.2.2.\n";

// What stands below each heading, by the heading's text.
using sections = std::map<std::string, std::string>;

// Adds the sections of a file. Links lead from there to docs/; here they are neighbours.
void read_sections(const std::filesystem::path& path, sections& found) {
  std::ifstream file(path);
  std::string line;
  std::string* section = nullptr;
  while (std::getline(file, line)) {
    if (line.starts_with("## ")) {
      section = &found[line.substr(3)];
    } else if (section != nullptr) {
      static const std::string to_docs = "../../docs/";
      for (size_t at = 0; (at = line.find(to_docs, at)) != std::string::npos;) {
        line.erase(at, to_docs.size());
      }
      *section += line + "\n";
    }
  }
}

sections read_all(const char* directory) {
  sections found;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
    if (entry.path().extension() == ".md") {
      read_sections(entry.path(), found);
    }
  }
  for (auto& [heading, text] : found) {
    const size_t last = text.find_last_not_of('\n');
    text.erase(last == std::string::npos ? 0 : last + 1);
  }
  return found;
}

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

// Prints the commands, and takes the sections that it prints.
class reference {
 public:
  explicit reference(sections texts) : texts_(std::move(texts)) {}

  void print() {
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
  }

  // Says which commands have no text and which texts no command. Result: false when there are any.
  bool is_complete() const {
    for (const std::string& command : without_text_) {
      fprintf(stderr, "no text for the command '%s'\n", command.c_str());
    }
    for (const auto& [heading, text] : texts_) {
      fprintf(stderr, "no command '%s', which there is a text for\n", heading.c_str());
    }
    return without_text_.empty() && texts_.empty();
  }

 private:
  void print_leaf(const std::string& path, const command_record& leaf) {
    const bool bare = leaf.usage[0] == '\0';
    printf("\n### `%s%s%s%s`\n\n", path.c_str(), leaf.name, bare ? "" : " ", leaf.usage);
    print_help(leaf.help);
    if (leaf.alias[0] != '\0') {
      printf("\nAlso: `%s%s`\n", path.c_str(), leaf.alias);
    }
    const auto text = texts_.find(path + leaf.name);
    if (text == texts_.end()) {
      without_text_.push_back(path + leaf.name);
      return;
    }
    printf("%s\n", text->second.c_str());
    texts_.erase(text);
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

  sections texts_;
  std::vector<std::string> without_text_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: command_reference DIRECTORY\n");
    return 2;
  }
  reference commands(read_all(argv[1]));
  commands.print();
  const bool complete = commands.is_complete();
  return complete && fflush(stdout) == 0 && ferror(stdout) == 0 ? 0 : 1;
}
