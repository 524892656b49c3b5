// Tool run: /usr/sbin/flash_erase.
#include "flash/erase.h"

#include "flash/protection.h"
#include "util/exec.h"
#include "util/log.h"

bool flash_erase_whole_partition(const mtd_partition& row) {
  log_printf(level_trace, "%s:\n", __func__);
  return flash_change(row, [&row] {
    command_line line;
    return compose_command(line, "/usr/sbin/flash_erase %s%s 0 0", flash_tools_are_quiet() ? "-q " : "",
                           row.dev_name) &&
           run_command(line.text());
  });
}
