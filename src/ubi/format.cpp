// The steps of a format. Tools run: /usr/sbin/ubiformat, and those of ubi/device, ubi/volume, flash/erase,
// mtd/mtdparts and mtd/repartition.
#include "ubi/format.h"

#include <cstring>

#include "flash/erase.h"
#include "mtd/mtdparts.h"
#include "mtd/partition_table.h"
#include "mtd/proc_mtd.h"
#include "mtd/repartition.h"
#include "ubi/attachment.h"
#include "ubi/device.h"
#include "ubi/volume.h"
#include "util/exec.h"
#include "util/log.h"

namespace {

// The row is looked up by this name whatever the device is called.
constexpr const char* ubi_partition = "ubi0";

// The size of the partition as the kernel has it now, low 32 bits.
uint32_t current_size(const char* ubi_dev_name) {
  auto size = static_cast<uint32_t>(mtd_name_to_size(ubi_dev_name));
  if (size == 0) {
    size = static_cast<uint32_t>(mtd_name_to_size("<NULL>"));
  }
  log_printf(level_verbose, "%s: ubi_mtd_size_curr=%u\n", "ubi_format", size);
  return size;
}

bool repartition(const char* ubi_dev_name, uint32_t current, uint32_t total, uint32_t total_kib) {
  const mtd_partition* row = mtd_get_by_name(ubi_partition);
  if (row == nullptr) {
    return false;
  }
  const bool changed = current > total ? mtd_partition_split(row->part_name, total, ubi0_mtd_size_max - total)
                                       : mtd_partition_merge(row->part_name);
  return changed && ubi_set_mtd_size_to_env(ubi_dev_name, total_kib) &&
         flash_erase_whole_partition(row->dev_name, row->type, 0);
}

bool run_ubiformat() {
  const mtd_partition* row = mtd_get_by_name(ubi_partition);
  command_line line;
  return row != nullptr &&
         compose_command(line, "/usr/sbin/ubiformat %s -y%s", row->dev_name,
                         log_level <= level_info ? " -q" : "") &&
         run_command(line.text());
}

// The size of a volume in KiB, 0 for all that is left. Per cents are taken of the whole partition even when
// it has been split.
int volume_size_kib(const mtd_partition& row, uint32_t rootfs_size_kib) {
  if (row.bank == mtd_bank_single) {
    return 1;  // one block: a fresh device has two banks
  }
  if (row.image == mtd_image_rootfs) {
    return static_cast<int>(rootfs_size_kib);
  }
  return static_cast<int>(ubi0_mtd_size_max * static_cast<uint64_t>(int64_t{row.volume_size}) / 102400);
}

bool make_volumes(const char* ubi_dev_name, uint32_t rootfs_size_kib) {
  const mtd_partition* row = nullptr;
  while ((row = mtd_get_by_type(row, mtd_type_any)) != nullptr) {
    if (strstr(row->dev_name, ubi_dev_name) != nullptr &&
        !ubi_mkvol(row->dev_name, volume_size_kib(*row, rootfs_size_kib), row->part_name)) {
      return false;
    }
  }
  return true;
}

}  // namespace

bool ubi_format(const char* ubi_dev_name, uint32_t rootfs_size_kib, uint32_t total_size_kib) {
  log_printf(level_trace, "%s: ubi_dev_name=%s rootfs_size_kib=%u total_size_kib=%u\n", __func__,
             ubi_dev_name, rootfs_size_kib, total_size_kib);
  if (rootfs_size_kib == 0) {
    rootfs_size_kib = static_cast<uint32_t>(ubi0_mtd_size_max >> 12);
  }
  if (total_size_kib == 0) {
    total_size_kib = static_cast<uint32_t>(ubi0_mtd_size_max >> 10);
  }
  const uint32_t total = total_size_kib * 1024;  // wraps at 4 GiB, as the boards' images rely on
  log_printf(level_verbose, "%s: ubi_dev_name=%s rootfs_size=%llu total_size=%llu\n", __func__, ubi_dev_name,
             static_cast<unsigned long long>(rootfs_size_kib) * 1024, static_cast<unsigned long long>(total));
  ubi_detach(ubi_dev_name);
  const uint32_t current = current_size(ubi_dev_name);
  if (current != total && !repartition(ubi_dev_name, current, total, total_size_kib)) {
    return false;
  }
  if (!run_ubiformat()) {
    return false;
  }
  const ubi_attachment ubi(ubi_dev_name, ubi_attachment::on_exit::detach);
  return ubi.attached() && make_volumes(ubi_dev_name, rootfs_size_kib);
}
