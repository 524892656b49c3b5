// Commands about the device's identity.
#pragma once

#include "commands/command.h"

// clang-format off

/// "show product": the factory's product ID, hardware configuration and MAC addresses, or one of them.
void cmd_show_product();
inline constexpr command_record command_show_product = {
    .name = "product", .usage = "[hwcfg|id|mac [<id>]]",
    .help = "Show product (factory) configuration (all or a specific item)\n"
            "      hwcfg = Hardware Configuration string\n"
            "      id = Product ID string\n"
            "      mac = Product MAC Address(es) (all or a specific ID)",
    .handler = cmd_show_product};

/// "show oem": what the maker of the end product has set.
void cmd_show_oem();
inline constexpr command_record command_show_oem = {
    .name = "oem",
    .help = "Show oem settings",
    .handler = cmd_show_oem};

// clang-format on
