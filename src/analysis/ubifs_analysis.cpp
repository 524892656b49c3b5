// Path: /mnt/etc/.vexo_product_info of the mounted volume.
#include "analysis/ubifs_analysis.h"

#include <sys/stat.h>

#include "analysis/product_info.h"
#include "flash/clean_check.h"
#include "mtd/partition_table.h"
#include "ubi/attachment.h"
#include "ubi/device.h"
#include "ubi/volume.h"
#include "util/log.h"
#include "util/text_buffer.h"

namespace {

constexpr const char* product_info_path = "/mnt/etc/.vexo_product_info";

void begin_analysis(const char* caller, const char* dev_name, flash_analysis* record) {
  log_printf(level_trace, "%s: dev_name=%s\n", caller, dev_name);
  analysis_set_identity(record, "-", "-");
}

}  // namespace

bool ubi_ubifs_analyze(const mtd_partition& row, flash_analysis* record) {
  begin_analysis(__func__, row.dev_name, record);
  ubi_attachment ubi(ubi_device_of(row), ubi_attachment::on_exit::unmount_and_detach);
  if (!ubi.attached() || !ubi.mount(row)) {
    return false;
  }
  product_info_read(product_info_path, record);
  record->size = static_cast<uint64_t>(ubi_get_volume_size_in_bytes(row.dev_name));
  return true;
}

bool ubi_ubifs_analyze(const char* dev_name, flash_analysis* record) {
  const mtd_partition* row = mtd_get_by_dev_name(dev_name);
  if (row != nullptr) {
    return ubi_ubifs_analyze(*row, record);
  }
  begin_analysis(__func__, dev_name, record);
  log_printf(level_error, "No entry in mtd table for %s\n", dev_name);
  return false;
}

bool ubi_ubifs_analyze_file_within(const char* part_name, const char* directory, const char* filename,
                                   uint32_t* size) {
  log_printf(level_trace, "%s: part_name=%s directory=%s filename=%s\n", __func__, part_name, directory,
             filename);
  if (size != nullptr) {
    *size = 0;
  }
  const mtd_partition* row = mtd_get_by_name(part_name);
  if (row == nullptr) {
    log_printf(level_error, "No partition entry in mtd table for %s\n", part_name);
    return false;
  }
  if (ubi_is_clean("ubi0")) {
    return false;
  }
  ubi_attachment ubi(ubi_device_of(*row), ubi_attachment::on_exit::unmount_and_detach);
  text_buffer<256> path;
  struct stat status;
  if (!ubi.attached() || !ubi.mount(*row) || !path.format("%s%s%s", ubi_mount_point, directory, filename) ||
      stat(path.text(), &status) != 0) {
    return false;
  }
  if (size != nullptr) {
    *size = static_cast<uint32_t>(status.st_size);
  }
  return true;
}
