// The last twenty lines that were entered.
#pragma once

#include "commands/command.h"

/// Forgets all lines.
void history_clear();

/// Stores a terminated line of at most 256 characters over the oldest one; browsing starts from the newest
/// again.
void history_store(const char* line);

/// Goes one line back or forth from where browsing stands. Result: the line to show ("" past the newest), or
/// null when there is none that way.
const char* history_older();
const char* history_newer();

/// "history": lists the stored lines, oldest first.
void cmd_history();
// clang-format off
inline constexpr command_record command_history = {
    .name = "history", .alias = "!",
    .help = "Show command history",
    .handler = cmd_history};
// clang-format on
