"""The commands of the shell as the user's manual lists them: words, parameters, help text; in the order of the tree."""

COMMANDS = [
    ("affirm", "[on|off]",
     "Show or set affirmation prompts on/off"),
    ("file download network", "<ip_addr> <file_remote> [<file_local>]",
     "Download a file via network tftp (default local path /tmp)"),
    ("file download serial", "<file_local> [<port> [<rate>]]",
     "Download a file via serial (default local path /tmp)"),
    ("flash analyze", "",
     "Analyze flash and show installed images"),
    ("flash clean", "[serial|nand]",
     "Erase all non-boot-critical areas of a flash device"),
    ("flash download network", "[<bank>] <ip_addr> <filename>",
     "Download an image via network and flash to a bank\n"
     "      <bank> = 1|2|single"),
    ("flash download serial", "[<bank> [<port> [<rate>]]]",
     "Download an image via serial and flash to a bank\n"
     "      <bank> = 1|2|single"),
    ("flash info", "[serial|nand]",
     "Display flash info"),
    ("flash kill", "[<bank>] [kernel|rootfs]",
     "Kill (erase) image(s) - default kernel and root filesystem in both banks\n"
     "      <bank> = 1|2|single"),
    ("gpiolib info", "[<gpio_num>|<signame>]",
     "Display gpiolib info (all or a specific number or name)"),
    ("gpiolib set", "<gpio_num>|<signame> high|low|1|0",
     "Set gpiolib output state\n"
     "      <gpio_num> = gpio number\n"
     "      <signame> = gpio signal name"),
    ("help", "[-v] [<command>]",
     "Show help (all or a specific command set)"),
    ("history", "",
     "Show command history"),
    ("network ethernet link", "[<if_name>] auto|auto-10h|auto-10f|auto-100h|auto-100f|10h|10f|100h|100f",
     "Set the link mode\n"
     "      <if_name> = interface name (default eth0)\n"
     "      auto = auto speed and duplex\n"
     "      auto-10h = 10 Mbps, Half Duplex (autoneg on)\n"
     "      auto-10f = 10 Mbps, Full Duplex (autoneg on)\n"
     "      auto-100h = 100 Mbps, Half Duplex (autoneg on)\n"
     "      auto-100f = 100 Mbps, Full Duplex (autoneg on)\n"
     "      10h = 10 Mbps, Half Duplex (autoneg off)\n"
     "      10f = 10 Mbps, Full Duplex (autoneg off)\n"
     "      100h = 100 Mbps, Half Duplex (autoneg off)\n"
     "      100f = 100 Mbps, Full Duplex (autoneg off)"),
    ("network ethernet start", "[<if_name>] [<ip_addr> <netmask> [<gateway>]]",
     "Start the ethernet network\n"
     "      <if_name> = interface name (default eth0)\n"
     "      <ip_addr> = IP Address to configure locally\n"
     "      <netmask> = Netmask to configure locally\n"
     "      <gateway> = IP Address of gateway\n"
     "    With no network parameters, DHCP will be used"),
    ("network ethernet stop", "[<if_name>]",
     "Stop the ethernet network\n"
     "      <if_name> = interface name (default eth0)"),
    ("network info", "[<if_name>]",
     "Display network info\n"
     "      <if_name> = interface name (default all)"),
    ("network ping", "[<if_name>] <ip_addr>",
     "Ping a node on the network\n"
     "      <if_name> = interface name (defaults to first found running)"),
    ("quit", "",
     "Exit the CLI"),
    ("reset", "",
     "Reset the system with a soft reset"),
    ("set bootenv bootbank", "1|2|single",
     "Configure current boot bank"),
    ("set bootenv bootcmd", "[run flashboot|run cfgldrboot]",
     "Set bootloader command for booting the kernel/config loader"),
    ("set bootenv bootdelay", "<seconds>",
     "Set boot delay before booting kernel\n"
     "      -1 = turns boot delay off and enters bootloader CLI\n"
     "       0 = turns boot delay off and immediately boots kernel\n"
     "      >0 = turns boot delay on and waits <seconds> before booting kernel"),
    ("set bootenv defaults", "",
     "Set boot environment to defaults"),
    ("set bootenv silent", "on|off",
     "Enable/Disable printing of boot messages to the console"),
    ("set console", "[-d<seconds>] [<port>] [<speed>] [<mode>] [<flow>] [<termination>]",
     "Set console settings\n"
     "      <seconds> = delay after successful change before printing status (default 0)\n"
     "      <port> = serial port device /dev/ttyS<port> (default current)\n"
     "      <speed> = baud rate (default current)\n"
     "      <mode> = rs232|rs485|rs422 (default current)\n"
     "      <flow> = hwflow|noflow (rs232 only, default current)\n"
     "      <termination> = term|noterm (rs485 only, default current)"),
    ("set opmode board", "<board_type>|default",
     "Set board operating mode\n"
     "      <board_type> = tk10_mfg|tk10_eval|tk20|tk30"),
    ("set opmode io", "<io_type>|default",
     "Set i/o operating mode\n"
     "      <io_type> = none|dio2x1r"),
    ("set opmode serports", "<#serports>|default",
     "Set number of serial ports operating mode"),
    ("show bootenv", "[<item>]",
     "Show boot environment settings (all or a specific item)"),
    ("show console", "",
     "Show current console settings"),
    ("show klog", "",
     "Show kernel log"),
    ("show oem", "",
     "Show oem settings"),
    ("show opmode", "",
     "Show operating mode"),
    ("show pattern", "[<iterations>]",
     "Show the test pattern\n"
     "      <iterations> = number of iterations (default 1)\n"
     "      If <iterations> is 0, repeats forever until canceled with Ctrl-C"),
    ("show product", "[hwcfg|id|mac [<id>]]",
     "Show product (factory) configuration (all or a specific item)\n"
     "      hwcfg = Hardware Configuration string\n"
     "      id = Product ID string\n"
     "      mac = Product MAC Address(es) (all or a specific ID)"),
    ("show system", "[<item>]",
     "Show system summary"),
    ("verbose", "[<level>]",
     "Show or set verbose output level"),
    ("version", "",
     "Show the Loader CLI version"),
]

# Entries of the tree without a command behind them; they must not be noticed.
PLACEHOLDERS = {
    "": ["resetcpu", "resetext", "boot", "bootflash", "bf", "bootnet", "bn", "mcmp", "mc", "md", "mfind", "mm"],
    "flash": ["erase", "nandbiterr", "nanddump", "nandmark", "nandscrub", "protecthw", "protectsw", "read", "set",
              "write"],
    "set": ["base"],
    "set bootenv": ["baudrate", "bootargs", "ipaddr", "serverip", "autoload", "gatewayip", "netmask", "hostname",
                    "bootfile", "loadaddr", "preboot", "bootfailcountreset", "console", "dns", "filename", "filetype",
                    "maxbootfc", "netcon", "safebankreset", "watchdog"],
    "show": ["base", "filename", "filetype", "platform", "syslog"],
}


def listing(words: str = "", verbose: bool = False) -> str:
    """What help prints of the commands that begin with these words."""
    lines = []
    for path, usage, text in COMMANDS:
        if f"{path} ".startswith(f"{words} ".lstrip()):
            lines.append(f"  {path} {usage}\n" + (f"    {text}\n\n" if verbose else ""))
    return "".join(lines)
