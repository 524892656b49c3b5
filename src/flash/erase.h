// Erasing a raw partition.
#pragma once

#include "flash/raw_partition.h"

/// Erases all blocks; a protected partition is unlocked for it. Result: true, or false after the runner's
/// error.
bool flash_erase_whole_partition(const mtd_partition& row);
/// The same for a partition described by its node, mtd_types value and protect flag.
inline bool flash_erase_whole_partition(const char* dev_name, int type, int protect) {
  return flash_erase_whole_partition(flash_row(dev_name, type, protect));
}
