// The configurable line drivers of the serial ports 1 and 2, which only the tk20 board has.
#pragma once

#include "tty/port.h"

/// Puts the line driver of the console's port into the record's mode and termination: drives its five
/// signals, then tells the kernel's serial driver through standard input. Nothing to do on other boards and
/// on port 0. Result: true, or false after an error.
bool tty_configure_mode(const tty_port& port);
