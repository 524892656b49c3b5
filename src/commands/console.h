// Commands of the serial console.
#pragma once

#include "commands/command.h"

// clang-format off

/// "set console": changes port, speed, mode, flow and termination of the console.
void cmd_set_console();
inline constexpr command_record command_set_console = {
    .name = "console", .usage = "[-d<seconds>] [<port>] [<speed>] [<mode>] [<flow>] [<termination>]",
    .help = "Set console settings\n"
            "      <seconds> = delay after successful change before printing status (default 0)\n"
            "      <port> = serial port device /dev/ttyS<port> (default current)\n"
            "      <speed> = baud rate (default current)\n"
            "      <mode> = rs232|rs485|rs422 (default current)\n"
            "      <flow> = hwflow|noflow (rs232 only, default current)\n"
            "      <termination> = term|noterm (rs485 only, default current)",
    .handler = cmd_set_console};

/// "show console": the settings; with VERBOSE also the terminal flags of the standard descriptors.
void cmd_show_console();
inline constexpr command_record command_show_console = {
    .name = "console",
    .help = "Show current console settings",
    .handler = cmd_show_console};

/// "show pattern": a fixed pattern of printable characters, for checking a terminal connection by eye.
void cmd_show_pattern();
inline constexpr command_record command_show_pattern = {
    .name = "pattern", .usage = "[<iterations>]",
    .help = "Show the test pattern\n"
            "      <iterations> = number of iterations (default 1)\n"
            "      If <iterations> is 0, repeats forever until canceled with Ctrl-C",
    .handler = cmd_show_pattern};

// clang-format on
