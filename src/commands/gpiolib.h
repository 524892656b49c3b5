// Commands of the board's signals.
#pragma once

#include "commands/command.h"

// clang-format off

/// "gpiolib info": lists the signals, or one.
void cmd_gpiolib_info();
/// "gpiolib set": drives an output.
void cmd_gpiolib_set();
inline constexpr command_record commands_gpiolib[] = {
    {.name = "info", .usage = "[<gpio_num>|<signame>]",
     .help = "Display gpiolib info (all or a specific number or name)",
     .handler = cmd_gpiolib_info},
    {.name = "set", .usage = "<gpio_num>|<signame> high|low|1|0",
     .help = "Set gpiolib output state\n"
             "      <gpio_num> = gpio number\n"
             "      <signame> = gpio signal name",
     .handler = cmd_gpiolib_set},
};

// clang-format on
