// The discrete signals of the board, driven and read through the kernel's sysfs interface
// (Documentation/admin-guide/gpio/sysfs.rst of the kernel).
//
// A signal that belongs to an I/O mode other than the current one is not active: nothing here finds, lists or
// touches it. Operations answer true, or false after one error, and undo nothing.
#pragma once

#include <cstdint>

#include "platform/signal.h"

/// Numbers of the board's GPIO lines.
constexpr int32_t gpiolib_lowest = 32;
constexpr int32_t gpiolib_highest = 159;

/// The table of the board and its row count; null and 0 for a board without one. Until gpiolib_init()
/// chooses, that of the tk20.
extern const gpiolib_signal* gpiolib_current;
extern int32_t gpiolib_current_size;

/// Gives all lines back to the kernel, chooses the table of `g_opmode_board`, takes every active signal that
/// is plain GPIO and drives the outputs to their defaults. Pending console input is discarded. Result: true,
/// whatever failed.
bool gpiolib_init();

/// Result: the active signal of the number or, when `text` is no number, of the exact name `text`; null for
/// none, for a null text and for numbers outside of the board's lines.
const gpiolib_signal* gpiolib_lookup_num_or_name_string(const char* text);
/// Result: the active signal of that number, or null.
const gpiolib_signal* gpiolib_lookup_num_int32(int32_t number);
/// Result: the next active signal after `row` (the first for null), or null.
const gpiolib_signal* gpiolib_lookup_next(const gpiolib_signal* row);
/// Result: the active signal that the test fixture wires to `row`, or null.
const gpiolib_signal* gpiolib_lookup_partner(const gpiolib_signal* row);
/// Result: the position of `row` in the current table, from 0.
int32_t gpiolib_table_index(const gpiolib_signal* row);

/// Takes the signal's line from the kernel, after switching its pin to GPIO if it has two functions. With
/// `quiet` only a failed switch is reported.
bool gpiolib_export(const gpiolib_signal* row, bool quiet);
/// Gives the line back and the pin to its peripheral. With `quiet` nothing is reported.
bool gpiolib_unexport(const gpiolib_signal* row, bool quiet);
/// Makes an exported line an input or an output.
bool gpiolib_set_direction(const gpiolib_signal* row, gpiolib_directions direction);
/// Drives an exported output.
bool gpiolib_set_state(const gpiolib_signal* row, gpiolib_states state);
/// Stores the level of an exported line. Result: false without a message when the kernel's answer is no
/// level.
bool gpiolib_get_state(const gpiolib_signal* row, gpiolib_states* state);

/// Drives the output `signal` (number or name) to `state_word`, "high", "low", "1" or "0".
bool gpiolib_set_state_by_num_or_name(const char* signal, const char* state_word);

/// Prints the table with the current levels, or the row of `signal` (number or name, null for all) alone.
void gpiolib_print_info(const char* signal);
