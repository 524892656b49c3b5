// The banks: which set of kernel and root file system a partition belongs to, an image goes into and the boot
// loader starts. Their words are the same in its variable "bootbank", in commands and in messages.
#pragma once

#include <cstdint>

enum mtd_banks : int32_t {
  mtd_bank_none,
  mtd_bank_1,
  mtd_bank_2,
  mtd_bank_single,
  mtd_bank_any,  // wildcard of look-ups
  mtd_bank_count,
};

/// Printable names, indexed by value.
extern const char* const mtd_bank_string[mtd_bank_count];
extern const char* const mtd_bank_string_short[mtd_bank_count];

/// Result: the bank that `word` names exactly ("1", "2" or "single"), mtd_bank_none when it names none.
mtd_banks mtd_bank_from_word(const char* word);
