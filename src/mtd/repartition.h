// Changing the partitions of the running kernel. The three requests are extensions of the device's kernel;
// a kernel without them refuses, which is reported like any failure.
#pragma once

#include <cstdint>

#include "mtd/partition_table.h"

/// Carves partition `part_name` into one of the same name of `size1` bytes and "user" of `size2` bytes, then
/// drops the old one. Result: 1, or 0 after an error (no message when `part_name` is unknown). The device
/// names are read again on every way out after the first request; a failed drop leaves all three partitions.
int mtd_partition_split(const char* part_name, uint64_t size1, uint64_t size2);

/// Joins partition `part_name` and "user", which follows it. Result: 1, or 0 (no message when one of them is
/// unknown). The device names are read again.
int mtd_partition_merge(const char* part_name);

/// Replaces the partition of `row` by one of `size` bytes at its start. Result: 1 or 0, as for a split.
int mtd_partition_resize_and_move(const mtd_partition* row, uint64_t size);
