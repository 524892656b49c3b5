// See ubifs_analysis.h. Paths: /mnt/etc/.vexo_product_info.
#include "analysis/ubifs_analysis.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "flash/clean_check.h"
#include "mtd/partition_table.h"
#include "ubi/attachment.h"
#include "ubi/device.h"
#include "ubi/volume.h"
#include "util/log.h"
#include "util/text_buffer.h"

namespace {

constexpr const char* product_info_path = "/mnt/etc/.vexo_product_info";

// Copies up to `size` characters; a shorter text is padded with NULs, a longer one is not terminated.
void copy_field(char* field, size_t size, const char* text, size_t length) {
  memset(field, 0, size);
  memcpy(field, text, std::min(size, length));
}

// Takes the text between the first and the last double quote behind `key`; an empty one is passed over.
// Result: true when the line has the key.
bool take_value(const char* line, const char* key, char* field, size_t size) {
  const char* found = strstr(line, key);
  if (found == nullptr) {
    return false;
  }
  const char* first = strchr(found, '"');
  const char* last = strrchr(found, '"');
  if (first != nullptr && last > first + 1) {
    copy_field(field, size, first + 1, static_cast<size_t>(last - first - 1));
  }
  return true;
}

void read_product_info(flash_analysis* record) {
  FILE* file = fopen(product_info_path, "re");
  if (file == nullptr) {
    return;
  }
  char line[256];
  while (fgets(line, sizeof line, file) != nullptr) {
    if (!take_value(line, "VEXO_PRODUCT_VERSION", record->version, sizeof record->version)) {
      take_value(line, "VEXO_PRODUCT_CODE", record->code, sizeof record->code);
    }
  }
  fclose(file);
}

}  // namespace

int ubi_ubifs_analyze(const char* dev_name, flash_analysis* record) {
  log_printf(level_trace, "%s: dev_name=%s\n", __func__, dev_name);
  copy_field(record->version, sizeof record->version, "-", 1);
  copy_field(record->code, sizeof record->code, "-", 1);
  const mtd_partition* row = mtd_get_by_dev_name(dev_name);
  if (row == nullptr) {
    log_printf(level_error, "No entry in mtd table for %s\n", dev_name);
    return 0;
  }
  ubi_attachment ubi(ubi_device_of(*row), ubi_attachment::on_exit::unmount_and_detach);
  if (!ubi.attached() || !ubi.mount(*row)) {
    return 0;
  }
  read_product_info(record);
  record->size = static_cast<uint64_t>(ubi_get_volume_size_in_bytes(dev_name));
  return 1;
}

int ubi_ubifs_analyze_file_within(const char* part_name, const char* directory, const char* filename,
                                  uint32_t* size) {
  log_printf(level_trace, "%s: part_name=%s directory=%s filename=%s\n", __func__, part_name, directory,
             filename);
  if (size != nullptr) {
    *size = 0;
  }
  const mtd_partition* row = mtd_get_by_name(part_name);
  if (row == nullptr) {
    log_printf(level_error, "No partition entry in mtd table for %s\n", part_name);
    return 0;
  }
  if (ubi_is_clean("ubi0") != 0) {
    return 0;
  }
  ubi_attachment ubi(ubi_device_of(*row), ubi_attachment::on_exit::unmount_and_detach);
  text_buffer<256> path;
  struct stat status;
  if (!ubi.attached() || !ubi.mount(*row) || !path.format("%s%s%s", ubi_mount_point, directory, filename) ||
      stat(path.text(), &status) != 0) {
    return 0;
  }
  if (size != nullptr) {
    *size = static_cast<uint32_t>(status.st_size);
  }
  return 1;
}
