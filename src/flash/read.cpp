// Tools run: /usr/sbin/mtd_debug on serial flash, /usr/sbin/nanddump on nand flash. Request: MEMGETINFO.
#include "flash/read.h"

#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "util/exec.h"
#include "util/log.h"

bool flash_query_size(const unique_fd& device, uint32_t* size) {
  mtd_info_user info = {};
  if (ioctl(device.get(), MEMGETINFO, &info) < 0) {
    return false;
  }
  *size = info.size;
  return true;
}

bool flash_read_file(const mtd_partition& row, const char* file_path) {
  log_printf(level_trace, "%s:\n", __func__);
  uint32_t bytes = 0;
  {
    const unique_fd device = flash_open(row.dev_name, O_RDONLY);
    if (!device) {
      return false;
    }
    if (!flash_query_size(device, &bytes)) {
      log_printf(level_error, "Failed to get meminfo for %s: error(%s)\n", row.dev_name, strerror(errno));
      return false;
    }
  }
  if (!flash_type_is_supported(__func__, row.type)) {
    return false;
  }
  const int size = static_cast<int>(bytes);
  command_line line;
  const bool composed =
      row.type == mtd_type_nand
          ? compose_command(line, "/usr/sbin/nanddump -f %s -l %i -o -b %s", file_path, size, row.dev_name)
          : compose_command(line, "/usr/sbin/mtd_debug read %s 0 %i %s", row.dev_name, size, file_path);
  return composed && run_command(line.text());
}

bool flash_seek(int fd, const char* dev_name, uint64_t offset) {
  if (lseek(fd, static_cast<off_t>(offset), SEEK_SET) == static_cast<off_t>(offset)) {
    return true;
  }
  log_printf(level_error, "Error seeking to %s offset 0x%08lx\n", dev_name,
             static_cast<unsigned long>(offset));
  return false;
}

bool flash_read_at(int fd, const char* dev_name, uint64_t offset, void* buffer, size_t size) {
  if (!flash_seek(fd, dev_name, offset)) {
    return false;
  }
  const ssize_t got = read(fd, buffer, size);
  if (got < 0) {
    log_printf(level_error, "Error reading at %s offset 0x%08lx\n", dev_name,
               static_cast<unsigned long>(offset));
    return false;
  }
  if (got != static_cast<ssize_t>(size)) {
    log_printf(level_error, "Short read (%i/%i bytes) at %s offset 0x%08lx\n", static_cast<int>(got),
               static_cast<int>(size), dev_name, static_cast<unsigned long>(offset));
    return false;
  }
  return true;
}
