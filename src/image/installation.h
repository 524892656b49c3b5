// The state of one installation, and its last act: telling the boot loader.
#pragma once

#include <cstdint>

struct installation {
  int bank;       // mtd_bank_1, mtd_bank_2 or mtd_bank_single
  uint32_t mask;  // contents types to install, one bit each
  int written = 0;
  int skipped = 0;
  uint32_t kernel_length = 0;  // bytes of kernel contents, 0 without a kernel part
  bool switches_bank = false;  // a kernel or root file system was written
};

/// Counts a part that was handed to its destination.
void installation_count_part(installation& state, uint32_t contents_type);

/// Ends an installation whose parts all succeeded: reports the counts and, when a kernel or root file system
/// was written, sets "kernel_size_BANK" and then "bootbank" in the boot environment, so that the switch of
/// the bank is the last thing to change. Result: true, or false after an error.
bool installation_finish(const installation& state);
