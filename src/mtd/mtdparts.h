// The size of the UBI partition in the boot environment, variable "mtdparts". It is kept there while the
// partition is smaller than it could be, so that the kernel and the next start of the shell split it the same
// way. Its form is the kernel's (drivers/mtd/parsers/cmdlinepart.c): atmel_nand:81920k(ubi0),-(user)
#pragma once

#include <cstdint>

/// Stores the size of `ubi_dev_name` in KiB. Result: true when "mtdparts" names it as its first partition.
bool ubi_get_mtd_size_from_env(const char* ubi_dev_name, uint32_t* size_kib);

/// The same of the value `value` of the variable.
bool mtdparts_parse(const char* value, const char* ubi_dev_name, uint32_t* size_kib);

/// Records the size of `ubi_dev_name` in KiB; 0 clears the variable. Result: true, or false after an error.
bool ubi_set_mtd_size_to_env(const char* ubi_dev_name, uint32_t size_kib);
