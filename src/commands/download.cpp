// See download.h.
#include "commands/download.h"

#include <cstring>

#include "mtd/partition_table.h"

int image_bank_from_word(const char* word) {
  for (int bank = mtd_bank_1; bank <= mtd_bank_single; ++bank) {
    if (strcmp(word, mtd_bank_string[bank]) == 0) {
      return bank;
    }
  }
  return mtd_bank_none;
}
