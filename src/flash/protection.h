// The protection of partitions. One that the flash map marks as protected is unlocked before each change and
// locked again after it, whatever came of the change.
#pragma once

#include "mtd/partition_table.h"

/// Each acts on the whole partition at `dev_name`. Result: true, or false after the runner's error.
bool flash_unlock(const char* dev_name);
bool flash_lock(const char* dev_name);

/// Runs `change`, on a protected row between unlock and lock; when the unlock fails the partition is locked
/// at once and not changed. Result: true when every step worked.
template <typename Change>
bool flash_change(const mtd_partition& row, Change change) {
  if (row.protect != 1) {
    return change();
  }
  const bool changed = flash_unlock(row.dev_name) && change();
  return flash_lock(row.dev_name) && changed;
}
