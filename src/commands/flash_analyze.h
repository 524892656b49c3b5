// The command that shows what each partition holds.
#pragma once

#include "commands/command.h"

// clang-format off

/// "flash analyze": a line for each; Ctrl-C ends it.
void cmd_flash_analyze();
inline constexpr command_record command_flash_analyze = {
    .name = "analyze",
    .help = "Analyze flash and show installed images",
    .handler = cmd_flash_analyze};

// clang-format on
