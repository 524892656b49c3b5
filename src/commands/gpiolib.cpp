// Listing and driving the signals of platform/gpiolib.
#include "commands/gpiolib.h"

#include "commands/command.h"
#include "platform/gpiolib.h"
#include "util/log.h"

void cmd_gpiolib_info() {
  log_printf(level_trace, "%s:\n", __func__);
  const char* signal = token_shift();
  log_printf(level_plain, "\n");
  gpiolib_print_info(signal);
  log_printf(level_plain, "\n");
}

void cmd_gpiolib_set() {
  log_printf(level_trace, "%s:\n", __func__);
  const char* signal = token_shift();
  const char* state = token_shift();
  if (signal == nullptr || state == nullptr) {
    helper_incomplete_command();
    return;
  }
  _print_done_success_failure(gpiolib_set_state_by_num_or_name(signal, state));
}
