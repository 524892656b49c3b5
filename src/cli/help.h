// The help command: the command tree as the user sees it.
#pragma once

#include "commands/command.h"

/// "help": lists all commands, or those below the words of a command; "-v" in first place adds the help
/// texts.
void cmd_help();
// clang-format off
inline constexpr command_record command_help = {
    .name = "help", .alias = "?", .usage = "[-v] [<command>]",
    .help = "Show help (all or a specific command set)",
    .handler = cmd_help};
// clang-format on

/// Prints the leaves of a table, each behind `prefix` (null for none); with `filter` only the entry of
/// exactly that name. Takes the filters of deeper tables from `tokens`. Result: true when it printed
/// anything.
bool helper_help(const char* prefix, const command_record* table, int32_t count, bool verbose,
                 const char* filter);
