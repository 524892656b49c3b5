// Commands that list and wipe the partitions of the flash map.
#pragma once

#include "commands/command.h"

// clang-format off

/// "flash info": lists the flash map.
void cmd_flash_info();
inline constexpr command_record command_flash_info = {
    .name = "info", .usage = "[serial|nand]",
    .help = "Display flash info",
    .handler = cmd_flash_info};

/// "flash clean": erases all that is not needed to boot the loader.
void cmd_flash_clean();
inline constexpr command_record command_flash_clean = {
    .name = "clean", .usage = "[serial|nand]",
    .help = "Erase all non-boot-critical areas of a flash device",
    .handler = cmd_flash_clean};

/// "flash kill": erases kernel and root file system images of one bank.
void cmd_flash_kill();
inline constexpr command_record command_flash_kill = {
    .name = "kill", .usage = "[<bank>] [kernel|rootfs]",
    .help = "Kill (erase) image(s) - default kernel and root filesystem in both banks\n"
            "      <bank> = 1|2|single",
    .handler = cmd_flash_kill};

// clang-format on
