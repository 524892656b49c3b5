// Checking and finding destinations.
#include "image/destination.h"

#include <cstring>

#include "flash/clean_check.h"
#include "mtd/proc_mtd.h"
#include "util/log.h"

namespace {

bool node_contains(const mtd_partition& row, const char* text) {
  return strstr(row.dev_name, text) != nullptr;
}

bool erase_size_is(uint32_t required) {
  const uint32_t actual = mtd_name_to_erasesize("ubi0");
  if (actual == required) {
    return true;
  }
  log_printf(level_error, "ubi0 erase size is 0x%x, ubifs image requires 0x%x\n", actual, required);
  return false;
}

bool takes_rootfs(const mtd_partition& rootfs, const char* node_part, const char* refusal) {
  if (node_contains(rootfs, node_part)) {
    return true;
  }
  log_printf(level_error, "%s", refusal);
  return false;
}

}  // namespace

bool image_validate_destination(uint32_t contents_type) {
  log_printf(level_trace, "%s: contents_type=%d\n", __func__, static_cast<int>(contents_type));
  const mtd_partition* rootfs = mtd_get_by_image_and_bank(nullptr, mtd_image_rootfs, mtd_bank_any);
  if (rootfs == nullptr) {
    log_printf(level_error, "No rootfs partition found!\n");
    return false;
  }
  log_printf(level_verbose, "%s: mtd_dev_name=%s\n", __func__, rootfs->dev_name);
  constexpr const char* no_ubi = "No UBI partition for rootfs image\n";
  switch (contents_type) {
    case image_contents_rootfs_ubifs_16keb:
      return takes_rootfs(*rootfs, "ubi", no_ubi) && erase_size_is(0x4000);
    case image_contents_rootfs_ubifs_128keb:
      return takes_rootfs(*rootfs, "ubi", no_ubi) && erase_size_is(0x20000);
    case image_contents_rootfs_tar_lzma:
      return takes_rootfs(*rootfs, "ubi", no_ubi);
    case image_contents_rootfs_jffs2_or_ext2:
      return takes_rootfs(*rootfs, "mtd", "No partition for rootfs image\n");
    default:
      return true;
  }
}

const mtd_partition* image_find_destination(const char* caller, uint32_t contents_type, mtd_banks bank) {
  const mtd_images image = image_contents_type_to_mtd_image_type(contents_type);
  const bool in_bank = image == mtd_image_kernel || image == mtd_image_rootfs;
  const mtd_partition* row = image == mtd_image_none
                                 ? nullptr
                                 : mtd_get_by_image_and_bank(nullptr, image, in_bank ? bank : mtd_bank_none);
  if (row == nullptr) {
    log_printf(level_error, "%s: Can't find mtd for contents_type=%i\n", caller,
               static_cast<int>(contents_type));
  }
  return row;
}

bool image_destination_is_ubi(const mtd_partition& row) {
  return node_contains(row, "ubi");
}

bool image_contents_keep_header(uint32_t contents_type) {
  return contents_type == image_contents_bootloader || contents_type == image_contents_kernel ||
         contents_type == image_contents_config_loader;
}

bool image_contents_switch_bank(uint32_t contents_type) {
  return contents_type == image_contents_kernel ||
         image_contents_type_to_mtd_image_type(contents_type) == mtd_image_rootfs;
}

bool image_mask_selects(uint32_t mask, uint32_t contents_type) {
  return contents_type < 32 && (mask >> contents_type & 1) != 0;
}

bool image_mask_skips(uint32_t mask, uint32_t contents_type) {
  return image_contents_has_destination(contents_type) && !image_mask_selects(mask, contents_type);
}

bool image_skips_boot_env(uint32_t contents_type) {
  if (contents_type != image_contents_boot_env || ubi_is_clean("ubi0")) {
    return false;
  }
  log_printf(level_note, "Skipping boot_env image because flash is not clean\n");
  return true;
}
