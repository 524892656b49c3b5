// The size of the UBI partition in the boot environment, variable "mtdparts": kept there when the partition
// is smaller than it could be, so that the kernel and the next start of the shell split it the same way.
#pragma once

#include <cstdint>

/// Result: 1 with the size in KiB when "mtdparts" names `ubi_dev_name` as its first partition, else 0.
int ubi_get_mtd_size_from_env(const char* ubi_dev_name, uint32_t* size_kib);

/// Records the size of `ubi_dev_name` in KiB; 0 clears the variable. Result: 1, or 0 after an error.
int ubi_set_mtd_size_to_env(const char* ubi_dev_name, uint32_t size_kib);
