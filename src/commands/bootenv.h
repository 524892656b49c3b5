// Commands that set and show the boot loader's environment.
#pragma once

#include "commands/command.h"

// clang-format off

/// "set bootenv bootbank": the bank that the boot loader starts.
void cmd_set_bootenv_bootbank();
/// "set bootenv bootcmd": whether the boot loader starts the firmware or the recovery system.
void cmd_set_bootenv_bootcmd();
/// "set bootenv bootdelay": how long the boot loader waits for a key before it starts either.
void cmd_set_bootenv_bootdelay();
/// "set bootenv silent": whether the boot loader and the kernel print messages.
void cmd_set_bootenv_silent();
/// "set bootenv defaults": erases the environment and has the defaults written.
void cmd_set_bootenv_defaults();
inline constexpr command_record commands_set_bootenv[] = {
    {.name = "baudrate",
     .handler = cmd_not_yet_implemented},
    {.name = "bootargs", .usage = "'<string>'|clear",
     .help = "Set/Clear kernel command line to pass to kernel from bootloader",
     .handler = cmd_not_yet_implemented},
    {.name = "bootbank", .usage = "1|2|single",
     .help = "Configure current boot bank",
     .handler = cmd_set_bootenv_bootbank},
    {.name = "bootcmd", .usage = "[run flashboot|run cfgldrboot]",
     .help = "Set bootloader command for booting the kernel/config loader",
     .handler = cmd_set_bootenv_bootcmd},
    {.name = "bootdelay", .usage = "<seconds>",
     .help = "Set boot delay before booting kernel\n"
             "      -1 = turns boot delay off and enters bootloader CLI\n"
             "       0 = turns boot delay off and immediately boots kernel\n"
             "      >0 = turns boot delay on and waits <seconds> before booting kernel",
     .handler = cmd_set_bootenv_bootdelay},
    {.name = "ipaddr", .usage = "<ip_addr>|clear",
     .help = "Set/Clear local IP Address used by bootloader",
     .handler = cmd_not_yet_implemented},
    {.name = "serverip", .usage = "<ip_addr>|clear",
     .help = "Set/Clear remote tftp server IP Address used by bootloader",
     .handler = cmd_not_yet_implemented},
    {.name = "autoload",
     .handler = cmd_not_yet_implemented},
    {.name = "gatewayip", .usage = "<ip_addr>|clear",
     .help = "Set/Clear gateway IP Address used by bootloader",
     .handler = cmd_not_yet_implemented},
    {.name = "netmask", .usage = "<ip_mask>|clear",
     .help = "Set/Clear IP netmask used by bootloader",
     .handler = cmd_not_yet_implemented},
    {.name = "hostname", .usage = "<hostname>|clear",
     .help = "Set/Clear local host name used by bootloader",
     .handler = cmd_not_yet_implemented},
    {.name = "bootfile",
     .handler = cmd_not_yet_implemented},
    {.name = "loadaddr",
     .handler = cmd_not_yet_implemented},
    {.name = "preboot",
     .handler = cmd_not_yet_implemented},
    {.name = "bootfailcountreset",
     .help = "Reset current boot fail count",
     .handler = cmd_not_yet_implemented},
    {.name = "console", .usage = "<port>",
     .help = "Set console serial port",
     .handler = cmd_not_yet_implemented},
    {.name = "defaults",
     .help = "Set boot environment to defaults",
     .handler = cmd_set_bootenv_defaults},
    {.name = "dns", .usage = "<IP Address> | erase",
     .help = "Set DNS IP Address (for network autoboot or CLI commands)",
     .handler = cmd_not_yet_implemented},
    {.name = "filename", .usage = "<Filename> | erase",
     .help = "Set/Erase filename (for network autoboot or CLI commands)",
     .handler = cmd_not_yet_implemented},
    {.name = "filetype", .usage = "srec | coff | elf | image",
     .help = "Set file type (for network autoboot or CLI commands)",
     .handler = cmd_not_yet_implemented},
    {.name = "maxbootfc", .usage = "<count> | 0| off",
     .help = "Configure maximum boot fail count",
     .handler = cmd_not_yet_implemented},
    {.name = "netcon", .usage = "on | off",
     .help = "Enable/Disable network console access",
     .handler = cmd_not_yet_implemented},
    {.name = "safebankreset",
     .help = "Reset current safe bank",
     .handler = cmd_not_yet_implemented},
    {.name = "silent", .usage = "on|off",
     .help = "Enable/Disable printing of boot messages to the console",
     .handler = cmd_set_bootenv_silent},
    {.name = "watchdog", .usage = "on | off",
     .help = "Set Watchdog timer state",
     .handler = cmd_not_yet_implemented},
};

/// "show bootenv": all variables.
void cmd_show_bootenv();
inline constexpr command_record command_show_bootenv = {
    .name = "bootenv", .usage = "[<item>]",
    .help = "Show boot environment settings (all or a specific item)",
    .handler = cmd_show_bootenv};

/// Erases the boot environment partitions and has the environment tool write its defaults. Result: true, or
/// false after an error; when an erase failed no defaults are written.
bool helper_set_bootenv_defaults();

// clang-format on
