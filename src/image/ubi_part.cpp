// See ubi_part.h.
#include "image/ubi_part.h"

#include "util/log.h"

bool ubi_part_write(const mtd_partition& row, const uint8_t* /*header*/, const uint8_t* /*contents*/) {
  log_printf(level_error, "No writer for UBI volume %s\n", row.part_name);
  return false;
}

bool ubi_part_write_fd(const mtd_partition& row, const uint8_t* /*header*/, int /*fd*/,
                       bool /*format_allowed*/, uint64_t* /*checksum*/) {
  log_printf(level_error, "No writer for UBI volume %s\n", row.part_name);
  return false;
}
