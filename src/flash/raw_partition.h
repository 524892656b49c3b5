// What the operations on a raw partition have in common: the row that describes it, its node, and what its
// tools are told.
#pragma once

#include "mtd/partition_table.h"
#include "util/unique_fd.h"

/// Result: a row for the partition at `dev_name`, which need not be in the flash map. `type` is an mtd_types
/// value; only a `protect` of 1 means protected.
mtd_partition flash_row(const char* dev_name, int type, int protect);

/// Result: true for a partition on serial or nand flash; false after an error on behalf of `caller`.
bool flash_type_is_supported(const char* caller, mtd_types type);

/// Opens the node of a partition. Result: no descriptor after an error.
unique_fd flash_open(const char* dev_name, int flags);

/// Result: true while the verbosity is below PROGRESS, when the MTD tools are told to be quiet.
bool flash_tools_are_quiet();
