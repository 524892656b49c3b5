// Requests: MEMGETINFO, MEMGETBADBLOCK (include/uapi/mtd/mtd-abi.h of the kernel).
#include "flash/clean_check.h"

#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstdint>

#include "mtd/partition_table.h"
#include "util/log.h"
#include "util/signals.h"
#include "util/unique_fd.h"

namespace {

constexpr unsigned settle_seconds = 2;
constexpr uint32_t chunk_words = 256;
constexpr uint32_t chunk_size = chunk_words * sizeof(uint32_t);

bool next_chunk_is_erased(int fd) {
  uint32_t words[chunk_words];
  if (read(fd, words, sizeof words) != static_cast<ssize_t>(sizeof words)) {
    return false;
  }
  for (const uint32_t word : words) {
    if (word != 0xFFFFFFFF) {
      return false;
    }
  }
  return true;
}

}  // namespace

bool flash_is_clean(const char* dev_name) {
  log_printf(level_trace, "%s: %s\n", __func__, dev_name);
  sleep(settle_seconds);
  const unique_fd device(open(dev_name, O_RDONLY | O_CLOEXEC));
  mtd_info_user info = {};
  if (!device || ioctl(device.get(), MEMGETINFO, &info) < 0) {
    return false;
  }
  for (uint64_t offset = 0; offset < info.size; offset += chunk_size) {
    if (sigint_interrupted()) {
      return false;
    }
    auto block = static_cast<loff_t>(offset);
    if (ioctl(device.get(), MEMGETBADBLOCK, &block) > 0) {
      if (lseek(device.get(), static_cast<off_t>(offset + chunk_size), SEEK_SET) < 0) {
        return false;
      }
    } else if (!next_chunk_is_erased(device.get())) {
      return false;
    }
  }
  return true;
}

bool ubi_is_clean(const char* part_name) {
  const mtd_partition* row = mtd_get_by_name(part_name);
  return row != nullptr && flash_is_clean(row->dev_name);
}
