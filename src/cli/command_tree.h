// The root of the command tree.
#pragma once

#include "commands/command.h"

/// The first words of all command lines, in the order of the user's manual.
constexpr int32_t commands_top_count = 24;
extern const command_record commands_top[commands_top_count];
