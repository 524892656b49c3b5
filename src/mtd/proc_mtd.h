// The kernel's own list of partitions, /proc/mtd: number, size and erase block size by name. The first
// partition whose line contains the name anywhere is taken. A line (drivers/mtd/mtdcore.c of the kernel):
// mtd5: 00400000 00010000 "kernel_1"
#pragma once

#include <cstdint>

/// Result: the N of "mtdN" for `name`; -1 when there is no such line or no /proc/mtd.
int mtd_name_to_index(const char* name);
/// Result: the size of the partition in bytes, 0 when not found.
uint64_t mtd_name_to_size(const char* name);
/// Result: the erase block size of the partition in bytes, 0 when not found.
uint32_t mtd_name_to_erasesize(const char* name);

/// Gives every row of the flash map that the kernel lists its node "/dev/mtdN"; the other rows keep theirs.
/// The name before lasts until the call after this one, for an operation under way may still hold it.
void mtd_init_dev_names();
