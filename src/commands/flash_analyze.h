// The command that shows what is on flash.
#pragma once

#include "commands/command.h"

// clang-format off

/// "flash analyze": shows what each partition holds; ended by Ctrl-C.
void cmd_flash_analyze();
inline constexpr command_record command_flash_analyze = {
    .name = "analyze",
    .help = "Analyze flash and show installed images",
    .handler = cmd_flash_analyze};

// clang-format on
