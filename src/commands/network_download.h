// Commands that download images and files by TFTP.
#pragma once

#include "commands/command.h"

// clang-format off

/// "flash download network": fetches an image twice, first to check all of it, then to install it.
void cmd_flash_download_network();
inline constexpr command_record command_flash_download_network = {
    .name = "network", .usage = "[<bank>] <ip_addr> <filename>",
    .help = "Download an image via network and flash to a bank\n"
            "      <bank> = 1|2|single",
    .handler = cmd_flash_download_network};

/// "file download network": fetches a file.
void cmd_file_download_network();
inline constexpr command_record command_file_download_network = {
    .name = "network", .usage = "<ip_addr> <file_remote> [<file_local>]",
    .help = "Download a file via network tftp (default local path /tmp)",
    .handler = cmd_file_download_network};

// clang-format on
