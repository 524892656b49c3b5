// The command tree: joins the tables and records of the commands, laid out as the user's manual has it.
// Entries with cmd_not_yet_implemented keep their place and texts but are invisible to matching and help.
#include "cli/command_tree.h"

#include "cli/help.h"
#include "cli/history.h"
#include "commands/bootenv.h"
#include "commands/builtins.h"
#include "commands/console.h"
#include "commands/flash.h"
#include "commands/flash_analyze.h"
#include "commands/gpiolib.h"
#include "commands/network.h"
#include "commands/network_download.h"
#include "commands/opmode.h"
#include "commands/product.h"
#include "commands/serial_download.h"

namespace {

// An empty table, which both "serial" and "file upload" open.
constexpr const command_record* commands_serial = nullptr;
constexpr const command_record* commands_file_upload = commands_serial;

// clang-format off
constexpr command_record commands_file_download[] = {
    command_file_download_network,
    command_file_download_serial,
};

constexpr command_record commands_flash_download[] = {
    command_flash_download_network,
    command_flash_download_serial,
};

constexpr command_record commands_file[] = {
    {.name = "download", .usage = "file download ",
     .help = "Execute a file download command",
     .subtable = commands_file_download, .subtable_count = command_count(commands_file_download)},
    {.name = "upload", .usage = "file upload ",
     .help = "Execute a file upload command",
     .subtable = commands_file_upload, .subtable_count = 0},
};

constexpr command_record commands_flash[] = {
    command_flash_analyze,
    command_flash_clean,
    {.name = "download", .usage = "flash download ",
     .help = "Execute a flash download command",
     .subtable = commands_flash_download, .subtable_count = command_count(commands_flash_download)},
    command_flash_info,
    command_flash_kill,
    {.name = "erase", .usage = "[serial|nand] <offset> <size>",
     .help = "Erase a specific flash device",
     .handler = cmd_not_yet_implemented},
    {.name = "nandbiterr", .usage = "<offset>",
     .help = "Set a bit error at <offset>",
     .handler = cmd_not_yet_implemented},
    {.name = "nanddump", .usage = "<offset>",
     .help = "Dump the entire NAND page (data + extra) where <offset> is located",
     .handler = cmd_not_yet_implemented},
    {.name = "nandmark", .usage = "<offset>",
     .help = "Mark the NAND block as bad, where <offset> is located",
     .handler = cmd_not_yet_implemented},
    {.name = "nandscrub",
     .help = "Scrub NAND device, erasing blocks marked as bad",
     .handler = cmd_not_yet_implemented},
    {.name = "protecthw", .usage = "[serial|nand] <on|off> <offset> <size>",
     .help = "Turn hardware write protection on or off on a specific flash device",
     .handler = cmd_not_yet_implemented},
    {.name = "protectsw", .usage = "[serial|nand] <on|off> <offset> <size>",
     .help = "Turn software write protection on or off for a specific flash device",
     .handler = cmd_not_yet_implemented},
    {.name = "read", .usage = "[serial|nand] <dest> <offset> <size>",
     .help = "Read data from a specific flash device",
     .handler = cmd_not_yet_implemented},
    {.name = "set", .usage = "[serial|nand]",
     .help = "Show or set the default flash device",
     .handler = cmd_not_yet_implemented},
    {.name = "write", .usage = "[serial|nand] <source> <offset> <size>",
     .help = "Write data to a specific flash device",
     .handler = cmd_not_yet_implemented},
};

constexpr command_record commands_set[] = {
    {.name = "base", .usage = "hex|dec|bin|oct",
     .help = "Set base for numerical entry",
     .handler = cmd_not_yet_implemented},
    {.name = "bootenv", .usage = "set bootenv ",
     .help = "Set boot environment configuration item",
     .subtable = commands_set_bootenv, .subtable_count = command_count(commands_set_bootenv)},
    command_set_console,
    {.name = "opmode", .usage = "set opmode ",
     .help = "Set operational mode item",
     .subtable = commands_set_opmode, .subtable_count = command_count(commands_set_opmode)},
};

constexpr command_record commands_show[] = {
    {.name = "base",
     .help = "Show base for numerical entry",
     .handler = cmd_not_yet_implemented},
    command_show_bootenv,
    command_show_console,
    command_show_klog,
    {.name = "filename",
     .help = "Show filename for command defaults",
     .handler = cmd_not_yet_implemented},
    {.name = "filetype",
     .help = "Show file type for command defaults",
     .handler = cmd_not_yet_implemented},
    command_show_oem,
    command_show_opmode,
    command_show_pattern,
    {.name = "platform",
     .help = "Show hardware platform summary",
     .handler = cmd_not_yet_implemented},
    command_show_product,
    {.name = "syslog",
     .help = "Show the non-volatile system log",
     .handler = cmd_not_yet_implemented},
    command_show_system,
};

// clang-format on

}  // namespace

// clang-format off
const command_record commands_top[commands_top_count] = {
    command_affirm,
    {.name = "file", .usage = "file ",
     .help = "Execute a file command",
     .subtable = commands_file, .subtable_count = command_count(commands_file)},
    {.name = "flash", .usage = "flash ",
     .help = "Execute a flash command",
     .subtable = commands_flash, .subtable_count = command_count(commands_flash)},
    {.name = "gpiolib", .usage = "gpiolib ",
     .help = "Execute a gpiolib command",
     .subtable = commands_gpiolib, .subtable_count = command_count(commands_gpiolib)},
    command_help,
    command_history,
    {.name = "network", .usage = "network ",
     .help = "Execute a network command",
     .subtable = commands_network, .subtable_count = command_count(commands_network)},
    command_quit,
    command_reset,
    {.name = "resetcpu", .usage = "[<id>] [<type> [<ms>]]",
     .help = "Reset CPU (all or a specific <id>) with a specific reset type after <ms> delay",
     .handler = cmd_not_yet_implemented},
    {.name = "resetext", .usage = "[<id>] [<ms>]",
     .help = "Strobe the external reset line (all or a specific line <id>) with <ms> hold time",
     .handler = cmd_not_yet_implemented},
    {.name = "serial", .usage = "serial ",
     .help = "Execute a serial command",
     .subtable = commands_serial, .subtable_count = 0},
    {.name = "set", .usage = "set ",
     .help = "Execute a set command",
     .subtable = commands_set, .subtable_count = command_count(commands_set)},
    {.name = "show", .usage = "show ",
     .help = "Execute a show command",
     .subtable = commands_show, .subtable_count = command_count(commands_show)},
    command_verbose,
    command_version,
    {.name = "boot",
     .help = "Boot kernel with current autoboot configuration",
     .handler = cmd_not_yet_implemented},
    {.name = "bootflash", .alias = "bf", .usage = "[1 | 2]",
     .help = "Boot kernel from flash (current or specific bank)",
     .handler = cmd_not_yet_implemented},
    {.name = "bootnet", .alias = "bn", .usage = "[ip <addr> | mac <addr> [<filename>]]",
     .help = "Boot kernel from network (from configured or specific server and filename)",
     .handler = cmd_not_yet_implemented},
    {.name = "mcmp", .usage = "[b | w | l] <addr1> <addr2> [<count>]",
     .help = "Memory compare (byte, word, or long). Default: compare one location of int size",
     .handler = cmd_not_yet_implemented},
    {.name = "mc", .usage = "[b | w | l] <source> <dest> [<count>]",
     .help = "Memory copy (byte, word, or long). Default: copy one location of int size",
     .handler = cmd_not_yet_implemented},
    {.name = "md", .usage = "[b | w | l] <addr> [<count>]",
     .help = "Memory display (byte, word, or long) starting at <addr>. Default: display one location of int size",
     .handler = cmd_not_yet_implemented},
    {.name = "mfind", .usage = "[b | w | l] <addr1> <data> [<count>]",
     .help = "Memory find (byte, word, or long). Default: search one location of int size",
     .handler = cmd_not_yet_implemented},
    {.name = "mm", .usage = "[b | w | l] <addr> <data> [<count>]",
     .help = "Memory modify (byte, word, or long) starting at <addr>. Default: modify one location of int size",
     .handler = cmd_not_yet_implemented},
};
// clang-format on
