// The variables of the boot loader's environment, read and written through its own tools.
#pragma once

#include <cstddef>

#include "bootenv/bank.h"

/// Sets `name` to `value`; null or empty deletes the variable. The value is not quoted: the shell cuts it at
/// blanks, and the tool joins the words with single ones. Result: true, or false after the runner's error;
/// nothing is logged for a null or empty name.
bool uboot_env_set_val(const char* name, const char* value);

/// Reads `name` into `buffer` of `size` bytes, cut to size - 2 characters. The buffer is empty when the tool
/// could not be started. Result: true when the variable exists and is not empty.
bool uboot_env_get_val(const char* name, char* buffer, size_t size);

/// Result: the bank that "bootbank" names; mtd_bank_none when it is missing or names none.
mtd_banks uboot_env_get_active_bank();
