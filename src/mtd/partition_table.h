// The flash map: one row for every MTD partition and UBI volume that the loader knows, and the names of the
// values in the rows.
#pragma once

#include <cstdint>

#include "bootenv/bank.h"

enum mtd_types : int32_t {
  mtd_type_serial,
  mtd_type_nand,
  mtd_type_mmc,
  mtd_type_any,  // wildcard of look-ups
  mtd_type_ubi0,
  mtd_type_mmc0,
  mtd_type_count,
};

enum mtd_formats : int32_t {
  mtd_format_firmware,
  mtd_format_uboot_rom,
  mtd_format_tlv,
  mtd_format_uboot_env,
  mtd_format_uimage,
  mtd_format_jffs2,
  mtd_format_raw,
  mtd_format_ubi,
  mtd_format_ubifs,
  mtd_format_msdos,
  mtd_format_pri_ext2,
  mtd_format_log_ext2,
  mtd_format_extended,
  mtd_format_count,
};

enum mtd_images : int32_t {
  mtd_image_none = -1,  // no kind; stands in no row
  mtd_image_bootstrap,
  mtd_image_product_config,
  mtd_image_bootloader,
  mtd_image_boot_env,
  mtd_image_kernel,
  mtd_image_rootfs,
  mtd_image_filesystem,
  mtd_image_config_loader,
  mtd_image_other,
  mtd_image_reserved,
  mtd_image_kernel_rootfs,  // wildcard of look-ups: kernel or rootfs
  mtd_image_ubi0,
  mtd_image_privatefs,
  mtd_image_userfs,
  mtd_image_mmc0,
  mtd_image_count,
};

/// Printable names, indexed by value.
extern const char* const mtd_type_string[mtd_type_count];
extern const char* const mtd_format_string[mtd_format_count];
extern const char* const mtd_image_string[mtd_image_count];

/// One partition or volume. Ten words of 32 bits on the device.
struct mtd_partition {
  const char* dev_name;   // device node; brought in line with /proc/mtd at start-up and after changes
  const char* part_name;  // as the kernel and the boot loader know it
  int32_t volume_size;    // UBI volume: per cent of the UBI partition, 0 = the rest; -1 = MTD partition
  mtd_types type;         // kind of flash that holds it
  mtd_formats format;     // of its contents
  mtd_images image;       // kind of image that belongs in it
  mtd_banks bank;
  int32_t protect;  // 1 = unlocked before, and locked again after, every erase or write
  int32_t clean;    // 1 = erased when the flash is cleaned
  int32_t t;        // shown in listings
};
static_assert(sizeof(void*) != 4 || sizeof(mtd_partition) == 40);

constexpr int mtd_config_table_rows = 16;
/// The rows in the order in which everything walks them. Only `dev_name` ever changes.
extern mtd_partition mtd_config_table[mtd_config_table_rows];

/// Size of the UBI partition in bytes as found at start-up, before any split; sizes of volumes are per cents
/// of it. Set by mtd_init().
extern uint64_t ubi0_mtd_size_max;

/// Result: the number of rows, 16.
int mtd_config_table_size();

/// Result: the next row after `previous` (the first row when null) on flash of `type`, which may be any; null
/// when none is left.
mtd_partition* mtd_get_by_type(const mtd_partition* previous, mtd_types type);

/// Result: the next row after `previous` (the first row when null) for `image`, which may be kernel or root
/// file system, of `bank`, which may be any; null when none is left.
mtd_partition* mtd_get_by_image_and_bank(const mtd_partition* previous, mtd_images image, mtd_banks bank);

/// Result: the row whose partition name is exactly `name`, or whose device node is `dev_name`; or null.
mtd_partition* mtd_get_by_name(const char* name);
mtd_partition* mtd_get_by_dev_name(const char* dev_name);

/// Result: the device node of a row as listings show it, without "/dev/".
const char* mtd_short_node(const mtd_partition& row);
