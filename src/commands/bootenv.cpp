// Tools run: fw_printenv, and those of bootenv/environment and flash/erase.
#include "commands/bootenv.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "bootenv/environment.h"
#include "commands/affirm.h"
#include "commands/command.h"
#include "flash/erase.h"
#include "mtd/partition_table.h"
#include "util/exec.h"
#include "util/log.h"
#include "util/text_buffer.h"

namespace {

bool is_one_of(const char* word, const char* first, const char* second) {
  return strcmp(word, first) == 0 || strcmp(word, second) == 0;
}

// Whole decimal numbers from -1 up to what an int holds.
bool parse_bootdelay(const char* text, int* seconds) {
  char* end = nullptr;
  errno = 0;
  const long value = strtol(text, &end, 10);
  if (errno != 0 || end == text || *end != '\0' || value < -1 || value > INT32_MAX) {
    return false;
  }
  *seconds = static_cast<int>(value);
  return true;
}

void set_and_report(const char* name, const char* value) {
  _print_done_success_failure(uboot_env_set_val(name, value));
}

}  // namespace

void cmd_set_bootenv_bootbank() {
  log_printf(level_trace, "%s:\n", __func__);
  const char* bank = token_shift();
  if (bank == nullptr) {
    helper_incomplete_command();
    return;
  }
  if (mtd_bank_from_word(bank) == mtd_bank_none) {
    helper_invalid_parameter(bank);
    return;
  }
  set_and_report("bootbank", bank);
}

void cmd_set_bootenv_bootcmd() {
  log_printf(level_trace, "%s:\n", __func__);
  const char* run = token_shift();
  const char* script = token_shift();
  if (run == nullptr || script == nullptr) {
    helper_incomplete_command();
    return;
  }
  if (strcmp(run, "run") != 0) {
    helper_invalid_parameter(run);
    return;
  }
  if (!is_one_of(script, "flashboot", "cfgldrboot")) {
    // Unlike the first word, a wrong second one is also reported as a failed command.
    helper_invalid_parameter(script);
    _print_done_success_failure(false);
    return;
  }
  text_buffer<31> value;
  value.format("%s %s", run, script);
  set_and_report("bootcmd", value.text());
}

void cmd_set_bootenv_bootdelay() {
  log_printf(level_trace, "%s:\n", __func__);
  const char* text = token_shift();
  if (text == nullptr) {
    helper_incomplete_command();
    return;
  }
  if (const char* surplus = token_shift()) {
    helper_extraneous_parameter(surplus);
    return;
  }
  int seconds = 0;
  if (!parse_bootdelay(text, &seconds)) {
    helper_invalid_parameter(text);
    return;
  }
  log_printf(level_plain, "Setting bootdelay to %i\n", seconds);
  text_buffer<16> value;
  value.format("%i", seconds);
  set_and_report("bootdelay", value.text());
}

void cmd_set_bootenv_silent() {
  log_printf(level_trace, "%s:\n", __func__);
  const char* state = token_shift();
  if (state == nullptr) {
    helper_incomplete_command();
    return;
  }
  if (!is_one_of(state, "on", "off")) {
    helper_invalid_parameter(state);
    return;
  }
  set_and_report("silent", strcmp(state, "on") == 0 ? "on" : nullptr);
}

bool helper_set_bootenv_defaults() {
  log_printf(level_trace, "%s:\n", __func__);
  log_printf(level_plain, "Setting boot environment to defaults...\n");
  bool erased = true;
  const mtd_partition* row = nullptr;
  while ((row = mtd_get_by_image_and_bank(row, mtd_image_boot_env, mtd_bank_any)) != nullptr) {
    log_printf(level_progress, "Erasing boot environment partition %s\n", row->part_name);
    if (!flash_erase_whole_partition(*row)) {
      log_printf(level_error, "Failed to erase boot environment partition %s\n", row->part_name);
      erased = false;
    }
  }
  if (!erased) {
    return false;
  }
  log_printf(level_progress, "Writing defaults to boot environment partition(s)\n");
  // A write into no valid environment has the tool store its built-in one.
  return uboot_env_set_val("dummy_variable", nullptr);
}

void cmd_set_bootenv_defaults() {
  log_printf(level_trace, "%s:\n", __func__);
  if (const char* surplus = token_shift()) {
    helper_extraneous_parameter(surplus);
    return;
  }
  if (_affirmation()) {
    _print_done_success_failure(helper_set_bootenv_defaults());
  }
}

void cmd_show_bootenv() {
  log_printf(level_trace, "%s:\n", __func__);
  token_shift();  // an item may be named; all are shown
  if (!run_command("fw_printenv")) {
    _print_done_success_failure(false);
  }
}
