// The table of the banks' words and the look-up in it.
#include "bootenv/bank.h"

#include <cstring>
#include <initializer_list>

const char* const mtd_bank_string[mtd_bank_count] = {"none", "1", "2", "single", "any"};
const char* const mtd_bank_string_short[mtd_bank_count] = {"-", "1", "2", "S", "?"};

mtd_banks mtd_bank_from_word(const char* word) {
  for (const mtd_banks bank : {mtd_bank_1, mtd_bank_2, mtd_bank_single}) {
    if (strcmp(word, mtd_bank_string[bank]) == 0) {
      return bank;
    }
  }
  return mtd_bank_none;
}
