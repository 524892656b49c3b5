// Splitting, merging and resizing partitions of the running kernel. The requests for it are extensions of the
// device's own kernel; another kernel refuses them, which is reported like any failure.
#pragma once

#include <cstdint>

#include "mtd/partition_table.h"

/// Makes two partitions of the one named `part_name`: the first `size1` bytes under the same name, the
/// `size2` bytes that follow as "user"; then drops the old one. Result: true, or false after an error,
/// without a message when the kernel does not list `part_name`. Once the kernel was asked, the nodes in the
/// flash map are read again; a failed drop leaves all three partitions.
bool mtd_partition_split(const char* part_name, uint64_t size1, uint64_t size2);

/// Joins partition `part_name` and "user", which follows it. Result: true, or false after an error, without a
/// message when the kernel does not list one of them. The nodes in the flash map are read again.
bool mtd_partition_merge(const char* part_name);

/// Replaces the partition of `row` by one of `size` bytes at its start. Result: as for a split; no message
/// when its node cannot be opened.
bool mtd_partition_resize_and_move(const mtd_partition* row, uint64_t size);
