// Images in a file: checking one, and installing one. The file is mapped and walked by length; it ends where
// its last part ends.
#pragma once

#include <cstdint>

#include "mtd/partition_table.h"

/// Result: true when every part of the file is well-formed, whole, and can be taken by this device; false
/// after the first fault's error. Writes nothing.
bool image_validate(const char* path);

/// Installs the parts selected by `mask` (one bit per contents type) for `bank` (1, 2 or single). Result:
/// true, or false after an error; parts already written stay, and the boot bank is not
/// switched, unless setting it is what failed.
bool image_write(const char* path, mtd_banks bank, uint32_t mask);
