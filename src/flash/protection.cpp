// Tools run: /usr/sbin/flash_unlock, /usr/sbin/flash_lock.
#include "flash/protection.h"

#include "util/exec.h"

bool flash_unlock(const char* dev_name) {
  command_line line;
  return compose_command(line, "/usr/sbin/flash_unlock %s", dev_name) && run_command(line.text());
}

bool flash_lock(const char* dev_name) {
  command_line line;
  return compose_command(line, "/usr/sbin/flash_lock %s 0 -1", dev_name) && run_command(line.text());
}
