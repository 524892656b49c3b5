// Where a part of an image goes on this device, and which parts are left out.
#pragma once

#include <cstdint>

#include "image/header.h"
#include "mtd/partition_table.h"

/// Result: true when the device can take contents of this type, else false after an error: UBIFS images must
/// have been made for the erase block size of the UBI partition.
bool image_validate_destination(uint32_t contents_type);

/// Result: the row that takes contents of this type for `bank` (mtd_bank_1, _2 or _single), or null after an
/// error that names `caller`.
const mtd_partition* image_find_destination(const char* caller, uint32_t contents_type, mtd_banks bank);

/// Result: true when the row is a UBI volume, false when it is written raw.
bool image_destination_is_ubi(const mtd_partition& row);

/// Result: true when the partition of a part of this type gets the header in front of the contents.
bool image_contents_keep_header(uint32_t contents_type);

/// Result: true when a part of this type makes its bank bootable, so that the boot bank is switched to it.
bool image_contents_switch_bank(uint32_t contents_type);

/// The bit of a contents type in a mask of those to install.
constexpr uint32_t image_contents_bit(image_contents type) {
  return uint32_t{1} << type;
}

/// The contents types that a download installs: every type that has a destination.
constexpr uint32_t image_download_mask =
    image_contents_bit(image_contents_bootstrap) | image_contents_bit(image_contents_bootloader) |
    image_contents_bit(image_contents_boot_env) | image_contents_bit(image_contents_kernel) |
    image_contents_bit(image_contents_rootfs_jffs2_or_ext2) |
    image_contents_bit(image_contents_config_loader) | image_contents_bit(image_contents_rootfs_ubifs_16keb) |
    image_contents_bit(image_contents_oem_defaults) | image_contents_bit(image_contents_rootfs_tar_lzma) |
    image_contents_bit(image_contents_rootfs_ubifs_128keb) | image_contents_bit(image_contents_python_setup);
static_assert(image_download_mask == 0x7D3E);

/// Result: true when a mask with one bit per contents type selects this one.
bool image_mask_selects(uint32_t mask, uint32_t contents_type);

/// Result: true when a part of this type is to be skipped, because the mask does not select it. A type
/// without a destination is never skipped: an image with such a part is not for this device.
bool image_mask_skips(uint32_t mask, uint32_t contents_type);

/// Result: true, after a note, when a part of this type is a boot environment that is to be skipped: on flash
/// that is not clean one is in use. For that type asking pauses for two seconds.
bool image_skips_boot_env(uint32_t contents_type);
