// Walks the command tree; entries that are in the tables but not in the shell stay hidden.
#include "cli/help.h"

#include <cstring>

#include "cli/command_tree.h"
#include "util/log.h"

namespace {

void print_leaf(const char* prefix, const command_record& leaf, bool verbose) {
  log_printf(level_plain, "  %s%s %s\n", prefix != nullptr ? prefix : "", leaf.name, leaf.usage);
  if (verbose) {
    log_printf(level_plain, "    %s\n\n", leaf.help);
  }
}

}  // namespace

bool helper_help(const char* prefix, const command_record* table, int32_t count, bool verbose,
                 const char* filter) {
  bool printed = false;
  for (const command_record* entry = table; entry != table + count; ++entry) {
    if (filter != nullptr && strcmp(entry->name, filter) != 0) {
      continue;
    }
    if (entry->handler == nullptr) {
      const char* subfilter = token_shift();
      printed =
          helper_help(entry->usage, entry->subtable, entry->subtable_count, verbose, subfilter) || printed;
    } else if (entry->handler != cmd_not_yet_implemented) {
      print_leaf(prefix, *entry, verbose);
      printed = true;
    }
  }
  return printed;
}

void cmd_help() {
  log_printf(level_trace, "%s:\n", __func__);
  const char* filter = token_shift();
  const bool verbose = filter != nullptr && strcmp(filter, "-v") == 0;
  if (verbose) {
    filter = token_shift();
  }
  log_printf(level_plain, "\n%s Command Summary:\n\n", verbose ? "Verbose" : "Brief");
  const bool printed = helper_help(nullptr, commands_top, commands_top_count, verbose, filter);
  if (filter != nullptr && !printed) {
    log_printf(level_error, "Invalid parameter '%s'\n%s", filter, verbose ? "\n" : "");
  }
  log_printf(level_plain, "%s", verbose ? "" : "\n");
}
