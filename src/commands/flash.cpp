// Tools run: those of flash/erase and ubi/volume. Requests: the merge of mtd/repartition.
#include "commands/flash.h"

#include <cstring>
#include <initializer_list>

#include "bootenv/bank.h"
#include "commands/affirm.h"
#include "commands/bootenv.h"
#include "commands/command.h"
#include "flash/erase.h"
#include "mtd/mtdparts.h"
#include "mtd/partition_table.h"
#include "mtd/proc_mtd.h"
#include "mtd/repartition.h"
#include "ubi/volume.h"
#include "util/log.h"

namespace {

// Result: true when `word` is a leading part of `keyword`.
bool abbreviates(const char* word, const char* keyword) {
  return strncmp(word, keyword, strlen(word)) == 0;
}

// Takes an optional flash type; none means any. Result: false after an error.
bool take_type(mtd_types* type) {
  *type = mtd_type_any;
  const char* word = token_shift();
  if (word == nullptr) {
    return true;
  }
  for (const mtd_types candidate : {mtd_type_serial, mtd_type_nand}) {
    if (abbreviates(word, mtd_type_string[candidate])) {
      *type = candidate;
      return true;
    }
  }
  log_printf(level_error, "Invalid flash type '%s'\n", word);
  return false;
}

const char* flag_text(int flag) {
  return flag != 0 ? "T" : "F";
}

#define FLASH_INFO_FORMAT "%-7s %-10s %-14s %-11s %-15s %-3s %-2s %-2s %-2s\n"

// Makes the UBI partition as large as it can be, and has the boot environment say nothing else.
bool merge_user_partition(const mtd_partition& row) {
  return mtd_name_to_index("user") < 0 ||
         (mtd_partition_merge(row.part_name) && ubi_set_mtd_size_to_env(row.part_name, 0));
}

bool clean_partition(const mtd_partition& row) {
  log_printf(level_plain, "Cleaning %s partition %s (%s)...\n", mtd_type_string[row.type], row.dev_name,
             mtd_image_string[row.image]);
  if (row.format == mtd_format_ubi && !merge_user_partition(row)) {
    return false;
  }
  return flash_erase_whole_partition(row);
}

bool clean_partitions(mtd_types type) {
  const mtd_partition* row = nullptr;
  while ((row = mtd_get_by_type(row, type)) != nullptr) {
    if (row->clean != 0 && !clean_partition(*row)) {
      return false;
    }
  }
  return true;
}

bool erase_image(const mtd_partition& row) {
  log_printf(level_plain, "Erasing %s bank %s...\n", mtd_image_string[row.image], mtd_bank_string[row.bank]);
  if (row.format == mtd_format_ubifs) {
    return ubi_erase_volume(row.dev_name, mtd_type_string[row.type]);
  }
  return flash_erase_whole_partition(row);
}

bool erase_images(mtd_images image, mtd_banks bank) {
  const mtd_partition* row = nullptr;
  while ((row = mtd_get_by_image_and_bank(row, image, bank)) != nullptr) {
    if (!erase_image(*row)) {
      return false;
    }
  }
  return true;
}

// Takes an optional bank; without one it is bank 1.
mtd_banks take_bank() {
  const char* word = token_first();
  const mtd_banks bank = word != nullptr ? mtd_bank_from_word(word) : mtd_bank_none;
  if (bank == mtd_bank_none) {
    return mtd_bank_1;
  }
  token_shift();
  return bank;
}

// Takes "[kernel|rootfs]"; without a word it is both. Result: false after an error.
bool take_image(mtd_images* image) {
  *image = mtd_image_kernel_rootfs;
  const char* word = token_shift();
  if (word == nullptr) {
    return true;
  }
  if (abbreviates(word, "kernel")) {
    *image = mtd_image_kernel;
  } else if (abbreviates(word, "rootfs")) {
    *image = mtd_image_rootfs;
  } else {
    helper_invalid_parameter(word);
    return false;
  }
  if (const char* surplus = token_shift()) {
    helper_invalid_parameter(surplus);
    return false;
  }
  return true;
}

}  // namespace

void cmd_flash_info() {
  log_printf(level_trace, "%s:\n", __func__);
  mtd_types type;
  if (!take_type(&type)) {
    return;
  }
  log_printf(level_info, "%s: type=%s\n", __func__, mtd_type_string[type]);
  log_printf(level_plain, "\n" FLASH_INFO_FORMAT, "type", "partition", "name", "format", "image", "bk", "p",
             "t", "c");
  log_printf(level_plain, FLASH_INFO_FORMAT, "------", "---------", "-------------", "----------",
             "--------------", "--", "-", "-", "-");
  const mtd_partition* row = nullptr;
  while ((row = mtd_get_by_type(row, type)) != nullptr) {
    log_printf(level_plain, FLASH_INFO_FORMAT, mtd_type_string[row->type], mtd_short_node(*row),
               row->part_name, mtd_format_string[row->format], mtd_image_string[row->image],
               mtd_bank_string_short[row->bank], flag_text(row->protect), flag_text(row->t),
               flag_text(row->clean));
  }
  log_printf(level_plain, "\n");
}

void cmd_flash_clean() {
  log_printf(level_trace, "%s:\n", __func__);
  mtd_types type;
  if (!take_type(&type)) {
    return;
  }
  log_printf(level_info, "%s: type=%s\n", __func__, mtd_type_string[type]);
  if (!_affirmation()) {
    return;
  }
  _print_done_success_failure(clean_partitions(type) &&
                              (type != mtd_type_any || helper_set_bootenv_defaults()));
}

void cmd_flash_kill() {
  log_printf(level_trace, "%s:\n", __func__);
  const mtd_banks bank = take_bank();
  mtd_images image;
  if (!take_image(&image)) {
    return;
  }
  log_printf(level_info, "%s: bank=%s type=%s\n", __func__, mtd_bank_string[bank], mtd_image_string[image]);
  if (!_affirmation()) {
    return;
  }
  _print_done_success_failure(erase_images(image, bank));
}
