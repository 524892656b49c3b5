// The boot loader's environment, read and written through its own tools.
#pragma once

#include <cstddef>

#include "bootenv/bank.h"

/// Sets `name` to `value`; null or empty deletes the variable. The value is not quoted: blanks in it separate
/// words, which the tool joins again. Result: 1, or 0 after the runner's error (nothing is logged for a null
/// or empty name).
int uboot_env_set_val(const char* name, const char* value);

/// Reads `name` into `buffer` of `size` bytes, cut to size - 2 characters; the buffer is empty on failure to
/// run the tool. Result: 1 when the variable exists and is not empty, else 0.
int uboot_env_get_val(const char* name, char* buffer, size_t size);

/// Result: the bank that "bootbank" names; mtd_bank_none when it is missing or names none.
mtd_banks uboot_env_get_active_bank();
