// The state of one installation, and its last step: telling the boot loader.
#pragma once

#include <cstdint>

#include "mtd/partition_table.h"

struct installation {
  mtd_banks bank;  // 1, 2 or single
  uint32_t mask;   // contents types to install, one bit each
  int written = 0;
  int skipped = 0;
  uint32_t kernel_length = 0;  // bytes of kernel contents, 0 without a kernel part
  bool switches_bank = false;  // a kernel or root file system was written
};

/// Counts a part of `length` bytes of contents that was handed to its destination.
void installation_count_part(installation& state, uint32_t contents_type, uint32_t length);

/// Ends an installation whose parts all succeeded: reports the counts and, when a kernel or root file system
/// was written, sets "kernel_size_BANK" and then "bootbank" in the boot environment, so that the switch of
/// the bank is the last thing to change. Without a kernel part the size is set to 0: the bank has
/// no kernel. A kernel size that cannot be set leaves the bank as it was: the boot loader would load too much
/// or too little of the new kernel. Result: true, or false after an error.
bool installation_finish(const installation& state);
