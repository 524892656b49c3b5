// Path: the node of the partition.
#include "flash/raw_partition.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

#include "util/log.h"

mtd_partition flash_row(const char* dev_name, int type, int protect) {
  mtd_partition row = {};
  row.dev_name = dev_name;
  row.type = static_cast<mtd_types>(type);
  row.protect = protect;
  return row;
}

bool flash_type_is_supported(const char* caller, mtd_types type) {
  if (type == mtd_type_serial || type == mtd_type_nand) {
    return true;
  }
  log_printf(level_error, "%s: Unsupported flash type %i\n", caller, type);
  return false;
}

unique_fd flash_open(const char* dev_name, int flags) {
  unique_fd device(open(dev_name, flags | O_CLOEXEC));
  if (!device) {
    log_printf(level_error, "Failed to open %s: error(%s)\n", dev_name, strerror(errno));
  }
  return device;
}

bool flash_tools_are_quiet() {
  return log_level < level_progress;
}
