// Setting and showing the operating mode of platform/discover.
#include "commands/opmode.h"

#include "commands/command.h"
#include "platform/discover.h"
#include "util/log.h"

namespace {

void set_and_report(bool (*set)(const char*)) {
  const char* word = token_shift();
  if (word == nullptr) {
    helper_incomplete_command();
    return;
  }
  if (!set(word)) {
    helper_invalid_parameter(word);
    return;
  }
  _print_done_success_failure(true);
}

}  // namespace

void cmd_set_opmode_board() {
  log_printf(level_trace, "%s:\n", __func__);
  set_and_report(opmode_board_set);
}

void cmd_set_opmode_io() {
  log_printf(level_trace, "%s:\n", __func__);
  set_and_report(opmode_io_set);
}

void cmd_set_opmode_serports() {
  log_printf(level_trace, "%s:\n", __func__);
  set_and_report(opmode_num_serports_set);
}

void cmd_show_opmode() {
  log_printf(level_trace, "%s:\n", __func__);
  opmode_print();
  log_printf(level_plain, "\n");
}
