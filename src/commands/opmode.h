// Commands of the operating mode.
#pragma once

#include "commands/command.h"

// clang-format off

/// "set opmode board|io|serports": replaces what was found at start-up, until the next one.
void cmd_set_opmode_board();
void cmd_set_opmode_io();
void cmd_set_opmode_serports();
inline constexpr command_record commands_set_opmode[] = {
    {.name = "board", .usage = "<board_type>|default",
     .help = "Set board operating mode\n"
             "      <board_type> = tk10_mfg|tk10_eval|tk20|tk30",
     .handler = cmd_set_opmode_board},
    {.name = "io", .usage = "<io_type>|default",
     .help = "Set i/o operating mode\n"
             "      <io_type> = none|dio2x1r",
     .handler = cmd_set_opmode_io},
    {.name = "serports", .usage = "<#serports>|default",
     .help = "Set number of serial ports operating mode",
     .handler = cmd_set_opmode_serports},
};

/// "show opmode": shows all three.
void cmd_show_opmode();
inline constexpr command_record command_show_opmode = {
    .name = "opmode",
    .help = "Show operating mode",
    .handler = cmd_show_opmode};

// clang-format on
