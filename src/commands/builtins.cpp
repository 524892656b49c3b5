// Tools run: /sbin/reboot, /usr/bin/top, /bin/ps, /bin/dmesg.
#include "commands/builtins.h"

#include <cstring>

#include "build_date.h"
#include "commands/affirm.h"
#include "commands/command.h"
#include "util/exec.h"
#include "util/log.h"
#include "util/parse.h"

const char* const version_date = BUILD_DATE;
const char* const version_time = BUILD_TIME;

void print_banner() {
  log_printf(level_plain, "%s (%s %s)\n", "Zentavio Solvantra Recovery Loader v3.1.0.0R1", version_date,
             version_time);
}

void cmd_version() {
  log_printf(level_trace, "%s:\n", __func__);
  print_banner();
}

void cmd_quit() {}

void cmd_verbose() {
  log_printf(level_trace, "%s:\n", __func__);
  if (const char* text = token_shift()) {
    const uint32_t level = strtou32(text, nullptr, 0);
    if (level == 0) {
      log_printf(level_error, "Invalid verbose level '%s'\n", text);
    } else {
      log_level = level;
    }
  }
  log_printf(level_plain, "verbosity is %u\n", log_level);
}

void cmd_affirm() {
  log_printf(level_trace, "%s:\n", __func__);
  if (const char* option = token_shift()) {
    if (strcmp(option, "on") == 0) {
      affirm_on = true;
    } else if (strcmp(option, "off") == 0) {
      affirm_on = false;
    } else {
      log_printf(level_error, "invalid affirm option=%s\n", option);
    }
  }
  log_printf(level_plain, "affirm is %s\n", affirm_on ? "ON" : "OFF");
}

void cmd_reset() {
  log_printf(level_trace, "%s:\n", __func__);
  if (!run_command("/sbin/reboot")) {
    log_printf(level_error, "Reset Failed\n");
  }
}

void cmd_show_system() {
  log_printf(level_trace, "%s:\n", __func__);
  token_shift();  // an item may be named; all are shown
  log_printf(level_plain, "\n");
  run_command("/usr/bin/top -b -n1");
  run_command("/bin/ps");
  log_printf(level_plain, "\n");
}

void cmd_show_klog() {
  log_printf(level_trace, "%s:\n", __func__);
  if (!run_command("/bin/dmesg")) {
    _print_done_success_failure(false);
  }
}
