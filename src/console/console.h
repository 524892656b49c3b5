// The console: which port it is, its terminal settings, and how the shell moves onto it.
#pragma once

#include "tty/port.h"

/// Start-up: makes the standard descriptors blocking, sets the defaults, takes port and speed from the
/// kernel command line and maps the standard descriptors onto the port. A failure is logged and leaves
/// whatever state resulted.
void tty_init();

/// Sets port and speed of `tty_cli` from "cli_console=ttyS%d,%d" in /proc/cmdline; unchecked. Errors are
/// logged and leave both as they are.
void get_cli_console_from_cmdline();

/// Makes the record's port the console: standard input, output and error are opened on it anew and given the
/// console's settings. On success the record is stored in `tty_cli`, `delay_seconds` pass, and the settings
/// are printed. Ctrl-C during the delay moves the console back to the previous port. Result: true;
/// false after such a Ctrl-C, or after a text on standard error. After a failure behind the move the
/// descriptors stay on the new port.
bool tty_remap_stdio(tty_port* port, unsigned delay_seconds);

/// Result: true when the mode is possible on the port and this board, false after an error.
bool tty_validate_settings(const tty_port* port);

/// Prints the console's settings.
void tty_show_console();

/// Waits for the next byte, also on a non-blocking descriptor. Result: the byte, or EOF at the end of input;
/// the next call tries again.
int tty_read_cli_byte();

/// Switches the signals of the terminal on standard input on or off: with them, Ctrl-C is a signal; without,
/// a byte. Result: that of tcsetattr(), -1 also when the settings cannot be read.
int tty_set_isig(int on);
