// Finding out and changing the operating mode. A change of the board or of the I/O option initialises the
// board's signals again (platform/gpiolib.h): all outputs go back to their defaults.
#pragma once

/// Start-up: takes the mode from the product configuration, or the defaults without one, and initialises the
/// signals of the board. Result: that of gpiolib_init().
bool opmode_discover();

/// Each takes a value by its exact name, or "default". Result: true when it was stored, false when `text`
/// names none; nothing is logged.
bool opmode_board_set(const char* text);
bool opmode_io_set(const char* text);
/// The same for a decimal number up to opmode_num_serports_max.
bool opmode_num_serports_set(const char* text);

/// Prints the mode.
void opmode_print();
