// Commands that download images and files over a serial port.
#pragma once

#include "commands/command.h"

// clang-format off

/// "flash download serial": receives an image and installs it while it arrives.
void cmd_flash_download_serial();
inline constexpr command_record command_flash_download_serial = {
    .name = "serial", .usage = "[<bank> [<port> [<rate>]]]",
    .help = "Download an image via serial and flash to a bank\n"
            "      <bank> = 1|2|single",
    .handler = cmd_flash_download_serial};

/// "file download serial": receives a file.
void cmd_file_download_serial();
inline constexpr command_record command_file_download_serial = {
    .name = "serial", .usage = "<file_local> [<port> [<rate>]]",
    .help = "Download a file via serial (default local path /tmp)",
    .handler = cmd_file_download_serial};

// clang-format on
