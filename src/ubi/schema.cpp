// Reading the schema off the volumes, and changing it. Tools run: those of ubi/volume and
// bootenv/environment.
#include "ubi/schema.h"

#include "bootenv/environment.h"
#include "mtd/partition_table.h"
#include "ubi/device.h"
#include "ubi/volume.h"
#include "util/log.h"

namespace {

enum class schema { dual, single };

// Logical erase blocks of the three volumes and of what is free; -1 where not known.
struct layout {
  int bank_1 = -1;
  int bank_2 = -1;
  int single = -1;
  int free = -1;

  bool complete() const { return bank_1 >= 0 && bank_2 >= 0 && single >= 0 && free >= 0; }
  int total() const { return bank_1 + bank_2 + single + free; }
};

const char* schema_name(schema which) {
  return which == schema::single ? "single" : "dual";
}

layout read_layout() {
  layout lebs;
  const mtd_partition* row = nullptr;
  while ((row = mtd_get_by_image_and_bank(row, mtd_image_rootfs, mtd_bank_any)) != nullptr) {
    switch (row->bank) {
      case mtd_bank_1:
        lebs.bank_1 = ubi_get_volume_size_in_lebs(row->dev_name);
        break;
      case mtd_bank_2:
        lebs.bank_2 = ubi_get_volume_size_in_lebs(row->dev_name);
        break;
      case mtd_bank_single:
        lebs.single = ubi_get_volume_size_in_lebs(row->dev_name);
        break;
      default:
        break;
    }
  }
  lebs.free = ubi_get_free_num_lebs();
  log_printf(level_verbose, "Current # of LEB's: 1=%i 2=%i S=%i free=%i\n", lebs.bank_1, lebs.bank_2,
             lebs.single, lebs.free);
  return lebs;
}

bool is_dual_bank(mtd_banks bank) {
  return bank == mtd_bank_1 || bank == mtd_bank_2;
}

bool mismatch(schema expected, schema detected) {
  log_printf(level_error, "Rootfs schema mismatch. Expected %s, detected %s.\n", schema_name(expected),
             schema_name(detected));
  log_printf(level_note, "Try full \"flash clean\" first.\n");
  return false;
}

// Result: true when the volumes agree with the bank that the device boots.
bool layout_is_consistent() {
  log_printf(level_trace, "%s:\n", "ubi_check_rootfs_schema_consistency");
  const mtd_banks active = uboot_env_get_active_bank();
  const layout lebs = read_layout();
  if (!lebs.complete()) {
    log_printf(level_error, "Failed to discover all current rootfs volume sizes\n");
    return false;
  }
  if (active == mtd_bank_single && lebs.single == 1) {
    return mismatch(schema::single, schema::dual);
  }
  if (is_dual_bank(active) && lebs.single != 1) {
    return mismatch(schema::dual, schema::single);
  }
  return true;
}

// Result: the root file system of `bank` on the UBI device of `target`, or null.
const mtd_partition* rootfs_beside(const mtd_partition& target, mtd_banks bank) {
  const mtd_partition* row = mtd_get_by_image_and_bank(nullptr, mtd_image_rootfs, bank);
  return row != nullptr && row->type == target.type ? row : nullptr;
}

bool resize(const mtd_partition& row, int lebs) {
  if (ubi_rsvol(row.dev_name, lebs)) {
    return true;
  }
  log_printf(level_error, "Failed to resize volume %s to %i LEBs\n", row.part_name, lebs);
  return false;
}

// Shrinks before it grows, so that the space is free when it is claimed.
bool change_to(schema wanted, const mtd_partition& target) {
  const mtd_partition* bank_1 = rootfs_beside(target, mtd_bank_1);
  const mtd_partition* bank_2 = rootfs_beside(target, mtd_bank_2);
  const mtd_partition* single = rootfs_beside(target, mtd_bank_single);
  if (bank_1 == nullptr || bank_2 == nullptr || single == nullptr) {
    return false;
  }
  const int total = read_layout().total();
  if (wanted == schema::single) {
    return resize(*bank_1, 1) && resize(*bank_2, 1) && resize(*single, total - 2);
  }
  const int half = (total - 1) / 2;
  return resize(*single, 1) && resize(*bank_1, half) && resize(*bank_2, half);
}

}  // namespace

bool ubi_change_rootfs_schema_if_needed(const mtd_partition& target) {
  log_printf(level_trace, "%s: mtd_dev_name=%s\n", __func__, target.dev_name);
  if (!layout_is_consistent()) {
    return false;
  }
  const mtd_banks active = uboot_env_get_active_bank();
  const bool to_dual = active == mtd_bank_single && is_dual_bank(target.bank);
  const bool to_single = is_dual_bank(active) && target.bank == mtd_bank_single;
  if (!to_dual && !to_single) {
    log_printf(level_verbose, "No rootfs bank schema change needed. Still '%s'\n",
               schema_name(active == mtd_bank_single ? schema::single : schema::dual));
    return true;
  }
  const schema wanted = to_single ? schema::single : schema::dual;
  log_printf(level_note, "Changing rootfs bank schema for %s to '%s'\n", ubi_device_of(target),
             schema_name(wanted));
  return change_to(wanted, target);
}

bool ubi_change_rootfs_schema_if_needed(const char* dev_name) {
  if (const mtd_partition* target = mtd_get_by_dev_name(dev_name)) {
    return ubi_change_rootfs_schema_if_needed(*target);
  }
  log_printf(level_trace, "%s: mtd_dev_name=%s\n", __func__, dev_name);
  log_printf(level_error, "No entry in mtd table for %s\n", dev_name);
  return false;
}
