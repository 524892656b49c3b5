// Finding out and changing the operating mode. A change of the board or of the I/O option starts the board's
// signals anew (platform/gpiolib.h): all outputs go back to their defaults.
#pragma once

/// Start-up: derives the mode from the product configuration, the defaults without one, and initialises the
/// signals of the board. Result: that of gpiolib_init().
int opmode_discover();

/// Each takes a value by its exact name, or "default". Result: 1 when it was stored, 0 when `text` is none;
/// nothing is logged.
int opmode_board_set(const char* text);
int opmode_io_set(const char* text);
/// The same for a decimal number from 0 to 32.
int opmode_num_serports_set(const char* text);

/// Prints the mode.
void opmode_print();
