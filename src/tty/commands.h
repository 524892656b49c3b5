// Commands of the serial console.
#pragma once

/// "set console": changes port, speed, mode, flow and termination of the console.
void cmd_set_console();
/// "show console": the settings; with VERBOSE also the terminal flags of the standard descriptors.
void cmd_show_console();
/// "show pattern": a fixed pattern of printable characters, for checking a terminal connection by eye.
void cmd_show_pattern();
