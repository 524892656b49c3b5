// The kernel's own list of partitions, /proc/mtd: numbers, sizes and erase sizes by name.
// A name is looked for as a part of the line, so the first partition whose name contains it is taken.
#pragma once

#include <cstdint>

/// Result: the N of "mtdN" for `name`; -1 when there is no such line or no /proc/mtd.
int mtd_name_to_index(const char* name);
/// Result: the size of the partition in bytes, 0 when not found.
uint64_t mtd_name_to_size(const char* name);
/// Result: the erase block size of the partition in bytes, 0 when not found.
uint32_t mtd_name_to_erasesize(const char* name);

/// Gives every row of the partition table that the kernel lists its node "/dev/mtdN"; other rows keep
/// theirs. A replaced name is not freed: an operation under way may still hold it.
void mtd_init_dev_names();
