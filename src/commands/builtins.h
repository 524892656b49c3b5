// The small commands that belong to the shell itself.
#pragma once

#include "commands/command.h"

// clang-format off

/// When this program was built, as "May  5 2016" and "09:02:28".
extern const char* const version_date;
extern const char* const version_time;

/// Prints name, version and build date of the program.
void print_banner();

/// "version": the banner line.
void cmd_version();
inline constexpr command_record command_version = {
    .name = "version",
    .help = "Show the Loader CLI version",
    .handler = cmd_version};

/// "quit": nothing. The shell is all there is to return to.
void cmd_quit();
inline constexpr command_record command_quit = {
    .name = "quit", .alias = "exit",
    .help = "Exit the CLI",
    .handler = cmd_quit};

/// "verbose": sets the verbosity, if given, and shows it.
void cmd_verbose();
inline constexpr command_record command_verbose = {
    .name = "verbose", .usage = "[<level>]",
    .help = "Show or set verbose output level",
    .handler = cmd_verbose};

/// "affirm": switches the questions before destructive commands, if told to, and shows their state.
void cmd_affirm();
inline constexpr command_record command_affirm = {
    .name = "affirm", .usage = "[on|off]",
    .help = "Show or set affirmation prompts on/off",
    .handler = cmd_affirm};

/// "reset": reboots the device.
void cmd_reset();
inline constexpr command_record command_reset = {
    .name = "reset", .alias = "reboot",
    .help = "Reset the system with a soft reset",
    .handler = cmd_reset};

/// "show system": processes and load.
void cmd_show_system();
inline constexpr command_record command_show_system = {
    .name = "system", .usage = "[<item>]",
    .help = "Show system summary",
    .handler = cmd_show_system};

/// "show klog": the kernel's messages.
void cmd_show_klog();
inline constexpr command_record command_show_klog = {
    .name = "klog",
    .help = "Show kernel log",
    .handler = cmd_show_klog};

// clang-format on
