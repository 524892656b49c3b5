"""What the shell says in many places, to the byte."""

PROMPT = "CLI> "
BANNER = "Zentavio Solvantra Recovery Loader v3.1.0.0R1 ("
NOTICE = "Copyright (c) Zentavio. All rights reserved.\n"  # below the banner of a start; `version` shows the banner alone

SUCCESS = "Done: SUCCESS\n"
FAILURE = "Done: FAILURE\n"
NO_CHANGE = "<no change>\n" + SUCCESS
QUESTION = "Do you really want to do this (y/N)? "
ABORTED = "<aborted>\n"

UNKNOWN = "ERROR: Unknown Command\n"
AMBIGUOUS = "ERROR: Ambiguous Command\n"
INCOMPLETE = "ERROR: Incomplete command\n"
BRIEF, VERBOSE = "\nBrief Command Summary:\n\n", "\nVerbose Command Summary:\n\n"

BEGIN = "Begin serial download...\n"
NOT_WRITTEN = "ERROR: Failed to write firmware image\n"
NOT_INSTALLED = NOT_WRITTEN + FAILURE
PREPARING, INSTALLING = "Preparing ...\n", "Installing ...\n"
SKIPPED_BOOT_ENV = "NOTE: Skipping boot_env image because flash is not clean\n"
SENDER_GOES_ON = "NOTE: Waiting for the sender to stop (Ctrl-C, pressed 3 times, ends this)\n"
SETTING_DEFAULTS = "Setting boot environment to defaults...\n"

DHCP, STATIC = "NOTE: Using DHCP\n", "NOTE: Using static configuration\n"
USING_ETH0 = "NOTE: Using interface 'eth0'\n"
ALREADY_RUNNING = "ERROR: Network interface 'eth0' is already running\n"
ALREADY_STOPPED = "NOTE: Network interface 'eth0' is already stopped\n"

PATTERN_LINE = "".join(map(chr, range(33, 127))) + "\n"


def invalid(word: str) -> str:
    """The refusal of a word."""
    return f"ERROR: Invalid parameter '{word}'\n"


def system_failed(command: str, status: int = 1) -> str:
    """What is said of a command line that ended with this status."""
    return f"ERROR: system({command}) sys_rc={status << 8} exitstatus={status}\n"


def network_info(state, hw, ip="<unavailable>", netmask="<unavailable>", gateway="<unavailable>", mode="auto", link="down"):
    """What `network info` shows."""
    return (f"\n  eth0: ({state})\n       hw addr : {hw}\n       ip addr : {ip}\n       netmask : {netmask}\n"
            f"       gateway : {gateway}\n     link mode : {mode}\n    link state : {link}\n\n")


def errors(text):
    """The errors among what was shown."""
    return [line for line in text.splitlines() if line.startswith("ERROR: ")]
