// Tools run: /usr/sbin/fw_setenv, /usr/sbin/fw_printenv. Where the environment lies, and what its defaults
// are, is their configuration.
#include "bootenv/environment.h"

#include <sys/wait.h>

#include <cstdio>
#include <cstring>

#include "util/command_pipe.h"
#include "util/exec.h"
#include "util/log.h"

bool uboot_env_set_val(const char* name, const char* value) {
  log_printf(level_trace, "%s:\n", __func__);
  if (name == nullptr || name[0] == '\0') {
    return false;
  }
  command_line line;
  return compose_command(line, "%s %s %s %s", "/usr/sbin/fw_setenv", name, value != nullptr ? value : "",
                         log_level < level_verbose ? "> /dev/null 2>&1" : "") &&
         run_command(line.text());
}

bool uboot_env_get_val(const char* name, char* buffer, size_t size) {
  log_printf(level_trace, "%s:\n", __func__);
  if (buffer == nullptr || size == 0 || name == nullptr || name[0] == '\0') {
    return false;
  }
  buffer[0] = '\0';
  text_buffer<128> line;
  if (!line.format("%s -n %s 2>/dev/null", "/usr/sbin/fw_printenv", name)) {
    log_printf(level_error, "Command line too long, limit is %i characters\n",
               static_cast<int>(line.size() - 1));
    return false;
  }
  command_pipe tool(line.text(), "r");
  if (!tool) {
    log_printf(level_error, "%s: popen(%s)\n", __func__, line.text());
    return false;
  }
  if (size < 3 || fgets(buffer, static_cast<int>(size - 1), tool.stream()) == nullptr) {
    buffer[0] = '\0';
  }
  buffer[size - 1] = '\0';
  buffer[strcspn(buffer, "\n")] = '\0';
  const int status = tool.close();
  if (status == -1 || !WIFEXITED(status)) {
    log_printf(level_verbose, "%s: pclose() unclean exit\n", __func__);
    return false;
  }
  if (WEXITSTATUS(status) != 0) {
    log_printf(level_verbose, "%s: pclose() exit status=%i\n", __func__, WEXITSTATUS(status));
    return false;
  }
  return buffer[0] != '\0';
}

mtd_banks uboot_env_get_active_bank() {
  log_printf(level_trace, "%s:\n", __func__);
  char value[32];
  return uboot_env_get_val("bootbank", value, sizeof value) ? mtd_bank_from_word(value) : mtd_bank_none;
}
