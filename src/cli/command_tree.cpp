// The command tree, laid out as the user's manual has it. Entries with cmd_not_yet_implemented keep their
// place and texts but are invisible to matching and help.
#include "bootenv/commands.h"
#include "cli/builtins.h"
#include "cli/command.h"
#include "cli/help.h"
#include "cli/history.h"
#include "flash/commands.h"
#include "gpiolib/commands.h"
#include "image/network_commands.h"
#include "image/serial_commands.h"
#include "net/commands.h"
#include "opmode/commands.h"
#include "prodcfg/commands.h"
#include "tty/commands.h"

namespace {

template <int32_t Count>
constexpr int32_t count_of(const command_record (&/*table*/)[Count]) {
  return Count;
}

// An empty table, which both "serial" and "file upload" open.
constexpr const command_record* commands_serial = nullptr;
constexpr const command_record* commands_file_upload = commands_serial;

// clang-format off
constexpr command_record commands_file_download[] = {
    {.name = "network", .usage = "<ip_addr> <file_remote> [<file_local>]",
     .help = "Download a file via network tftp (default local path /tmp)",
     .handler = cmd_file_download_network},
    {.name = "serial", .usage = "<file_local> [<port> [<rate>]]",
     .help = "Download a file via serial (default local path /tmp)",
     .handler = cmd_file_download_serial},
};

constexpr command_record commands_flash_download[] = {
    {.name = "network", .usage = "[<bank>] <ip_addr> <filename>",
     .help = "Download an image via network and flash to a bank\n"
             "      <bank> = 1|2|single",
     .handler = cmd_flash_download_network},
    {.name = "serial", .usage = "[<bank> [<port> [<rate>]]]",
     .help = "Download an image via serial and flash to a bank\n"
             "      <bank> = 1|2|single",
     .handler = cmd_flash_download_serial},
};

constexpr command_record commands_network_ethernet[] = {
    {.name = "link", .usage = "[<if_name>] auto|auto-10h|auto-10f|auto-100h|auto-100f|10h|10f|100h|100f",
     .help = "Set the link mode\n"
             "      <if_name> = interface name (default eth0)\n"
             "      auto = auto speed and duplex\n"
             "      auto-10h = 10 Mbps, Half Duplex (autoneg on)\n"
             "      auto-10f = 10 Mbps, Full Duplex (autoneg on)\n"
             "      auto-100h = 100 Mbps, Half Duplex (autoneg on)\n"
             "      auto-100f = 100 Mbps, Full Duplex (autoneg on)\n"
             "      10h = 10 Mbps, Half Duplex (autoneg off)\n"
             "      10f = 10 Mbps, Full Duplex (autoneg off)\n"
             "      100h = 100 Mbps, Half Duplex (autoneg off)\n"
             "      100f = 100 Mbps, Full Duplex (autoneg off)",
     .handler = cmd_network_ethernet_link},
    {.name = "start", .usage = "[<if_name>] [<ip_addr> <netmask> [<gateway>]]",
     .help = "Start the ethernet network\n"
             "      <if_name> = interface name (default eth0)\n"
             "      <ip_addr> = IP Address to configure locally\n"
             "      <netmask> = Netmask to configure locally\n"
             "      <gateway> = IP Address of gateway\n"
             "    With no network parameters, DHCP will be used",
     .handler = cmd_network_ethernet_start},
    {.name = "stop", .usage = "[<if_name>]",
     .help = "Stop the ethernet network\n"
             "      <if_name> = interface name (default eth0)",
     .handler = cmd_network_ethernet_stop},
};

constexpr command_record commands_set_bootenv[] = {
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

constexpr command_record commands_set_opmode[] = {
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

constexpr command_record commands_file[] = {
    {.name = "download", .usage = "file download ",
     .help = "Execute a file download command",
     .subtable = commands_file_download, .subtable_count = count_of(commands_file_download)},
    {.name = "upload", .usage = "file upload ",
     .help = "Execute a file upload command",
     .subtable = commands_file_upload, .subtable_count = 0},
};

constexpr command_record commands_flash[] = {
    {.name = "analyze",
     .help = "Analyze flash and show installed images",
     .handler = cmd_flash_analyze},
    {.name = "clean", .usage = "[serial|nand]",
     .help = "Erase all non-boot-critical areas of a flash device",
     .handler = cmd_flash_clean},
    {.name = "download", .usage = "flash download ",
     .help = "Execute a flash download command",
     .subtable = commands_flash_download, .subtable_count = count_of(commands_flash_download)},
    {.name = "info", .usage = "[serial|nand]",
     .help = "Display flash info",
     .handler = cmd_flash_info},
    {.name = "kill", .usage = "[<bank>] [kernel|rootfs]",
     .help = "Kill (erase) image(s) - default kernel and root filesystem in both banks\n"
             "      <bank> = 1|2|single",
     .handler = cmd_flash_kill},
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

constexpr command_record commands_gpiolib[] = {
    {.name = "info", .usage = "[<gpio_num>|<signame>]",
     .help = "Display gpiolib info (all or a specific number or name)",
     .handler = cmd_gpiolib_info},
    {.name = "set", .usage = "<gpio_num>|<signame> high|low|1|0",
     .help = "Set gpiolib output state\n"
             "      <gpio_num> = gpio number\n"
             "      <signame> = gpio signal name",
     .handler = cmd_gpiolib_set},
};

constexpr command_record commands_network[] = {
    {.name = "ethernet", .usage = "network ethernet ",
     .help = "Execute an ethernet network command",
     .subtable = commands_network_ethernet, .subtable_count = count_of(commands_network_ethernet)},
    {.name = "info", .usage = "[<if_name>]",
     .help = "Display network info\n"
             "      <if_name> = interface name (default all)",
     .handler = cmd_network_info},
    {.name = "ping", .usage = "[<if_name>] <ip_addr>",
     .help = "Ping a node on the network\n"
             "      <if_name> = interface name (defaults to first found running)",
     .handler = cmd_network_ping},
};

constexpr command_record commands_set[] = {
    {.name = "base", .usage = "hex|dec|bin|oct",
     .help = "Set base for numerical entry",
     .handler = cmd_not_yet_implemented},
    {.name = "bootenv", .usage = "set bootenv ",
     .help = "Set boot environment configuration item",
     .subtable = commands_set_bootenv, .subtable_count = count_of(commands_set_bootenv)},
    {.name = "console", .usage = "[-d<seconds>] [<port>] [<speed>] [<mode>] [<flow>] [<termination>]",
     .help = "Set console settings\n"
             "      <seconds> = delay after successful change before printing status (default 0)\n"
             "      <port> = serial port device /dev/ttyS<port> (default current)\n"
             "      <speed> = baud rate (default current)\n"
             "      <mode> = rs232|rs485|rs422 (default current)\n"
             "      <flow> = hwflow|noflow (rs232 only, default current)\n"
             "      <termination> = term|noterm (rs485 only, default current)",
     .handler = cmd_set_console},
    {.name = "opmode", .usage = "set opmode ",
     .help = "Set operational mode item",
     .subtable = commands_set_opmode, .subtable_count = count_of(commands_set_opmode)},
};

constexpr command_record commands_show[] = {
    {.name = "base",
     .help = "Show base for numerical entry",
     .handler = cmd_not_yet_implemented},
    {.name = "bootenv", .usage = "[<item>]",
     .help = "Show boot environment settings (all or a specific item)",
     .handler = cmd_show_bootenv},
    {.name = "console",
     .help = "Show current console settings",
     .handler = cmd_show_console},
    {.name = "klog",
     .help = "Show kernel log",
     .handler = cmd_show_klog},
    {.name = "filename",
     .help = "Show filename for command defaults",
     .handler = cmd_not_yet_implemented},
    {.name = "filetype",
     .help = "Show file type for command defaults",
     .handler = cmd_not_yet_implemented},
    {.name = "oem",
     .help = "Show oem settings",
     .handler = cmd_show_oem},
    {.name = "opmode",
     .help = "Show operating mode",
     .handler = cmd_show_opmode},
    {.name = "pattern", .usage = "[<iterations>]",
     .help = "Show the test pattern\n"
             "      <iterations> = number of iterations (default 1)\n"
             "      If <iterations> is 0, repeats forever until canceled with Ctrl-C",
     .handler = cmd_show_pattern},
    {.name = "platform",
     .help = "Show hardware platform summary",
     .handler = cmd_not_yet_implemented},
    {.name = "product", .usage = "[hwcfg|id|mac [<id>]]",
     .help = "Show product (factory) configuration (all or a specific item)\n"
             "      hwcfg = Hardware Configuration string\n"
             "      id = Product ID string\n"
             "      mac = Product MAC Address(es) (all or a specific ID)",
     .handler = cmd_show_product},
    {.name = "syslog",
     .help = "Show the non-volatile system log",
     .handler = cmd_not_yet_implemented},
    {.name = "system", .usage = "[<item>]",
     .help = "Show system summary",
     .handler = cmd_show_system},
};

// clang-format on

}  // namespace

// clang-format off
const command_record commands_top[commands_top_count] = {
    {.name = "affirm", .usage = "[on|off]",
     .help = "Show or set affirmation prompts on/off",
     .handler = cmd_affirm},
    {.name = "file", .usage = "file ",
     .help = "Execute a file command",
     .subtable = commands_file, .subtable_count = count_of(commands_file)},
    {.name = "flash", .usage = "flash ",
     .help = "Execute a flash command",
     .subtable = commands_flash, .subtable_count = count_of(commands_flash)},
    {.name = "gpiolib", .usage = "gpiolib ",
     .help = "Execute a gpiolib command",
     .subtable = commands_gpiolib, .subtable_count = count_of(commands_gpiolib)},
    {.name = "help", .alias = "?", .usage = "[-v] [<command>]",
     .help = "Show help (all or a specific command set)",
     .handler = cmd_help},
    {.name = "history", .alias = "!",
     .help = "Show command history",
     .handler = cmd_history},
    {.name = "network", .usage = "network ",
     .help = "Execute a network command",
     .subtable = commands_network, .subtable_count = count_of(commands_network)},
    {.name = "quit", .alias = "exit",
     .help = "Exit the CLI",
     .handler = cmd_quit},
    {.name = "reset", .alias = "reboot",
     .help = "Reset the system with a soft reset",
     .handler = cmd_reset},
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
     .subtable = commands_set, .subtable_count = count_of(commands_set)},
    {.name = "show", .usage = "show ",
     .help = "Execute a show command",
     .subtable = commands_show, .subtable_count = count_of(commands_show)},
    {.name = "verbose", .usage = "[<level>]",
     .help = "Show or set verbose output level",
     .handler = cmd_verbose},
    {.name = "version",
     .help = "Show the Loader CLI version",
     .handler = cmd_version},
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
