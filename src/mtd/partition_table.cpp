// The rows stand in the order of the board's flash map, to be checked against it row by row.
#include "mtd/partition_table.h"

#include <cstring>
#include <iterator>

const char* const mtd_type_string[mtd_type_count] = {
    "serial", "nand", "mmc", "any", "ubi0", "mmc0",
};

const char* const mtd_format_string[mtd_format_count] = {
    "firmware", "u-boot rom", "tlv",   "u-boot env", "uImage",   "jffs2",    "raw",
    "ubi",      "ubifs",      "msdos", "pri_ext2",   "log_ext2", "extended",
};

const char* const mtd_image_string[mtd_image_count] = {
    "bootstrap",     "product config", "bootloader",    "boot env", "kernel",
    "rootfs",        "filesystem",     "config loader", "other",    "reserved",
    "kernel/rootfs", "ubi0",           "privatefs",     "userfs",   "mmc0",
};

uint64_t ubi0_mtd_size_max = 0;

// clang-format off
// The nodes are those before start-up has read the kernel's numbers.
mtd_partition mtd_config_table[mtd_config_table_rows] = {
  // dev_name      part_name       size  type              format                image                     bank             p  c  t
  {"/dev/mtd0",   "bootstrap",      -1,  mtd_type_serial,  mtd_format_firmware,  mtd_image_bootstrap,      mtd_bank_none,   1, 0, 0},
  {"/dev/mtd1",   "prod_config",    -1,  mtd_type_serial,  mtd_format_tlv,       mtd_image_product_config, mtd_bank_none,   1, 0, 1},
  {"/dev/mtd2",   "bootloader",     -1,  mtd_type_serial,  mtd_format_uboot_rom, mtd_image_bootloader,     mtd_bank_none,   1, 0, 1},
  {"/dev/mtd3",   "bootenv_1",      -1,  mtd_type_serial,  mtd_format_uboot_env, mtd_image_boot_env,       mtd_bank_none,   1, 0, 1},
  {"/dev/mtd4",   "bootenv_2",      -1,  mtd_type_serial,  mtd_format_uboot_env, mtd_image_boot_env,       mtd_bank_none,   1, 0, 1},
  {"/dev/mtd5",   "kernel_1",       -1,  mtd_type_serial,  mtd_format_uimage,    mtd_image_kernel,         mtd_bank_1,      0, 0, 0},
  {"/dev/mtd6",   "kernel_2",       -1,  mtd_type_serial,  mtd_format_uimage,    mtd_image_kernel,         mtd_bank_2,      0, 0, 0},
  {"/dev/mtd7",   "kernel_single",  -1,  mtd_type_serial,  mtd_format_uimage,    mtd_image_kernel,         mtd_bank_single, 0, 1, 1},
  {"/dev/mtd8",   "config_loader",  -1,  mtd_type_serial,  mtd_format_uimage,    mtd_image_config_loader,  mtd_bank_none,   0, 0, 1},
  {"/dev/mtd9",   "param_space",    -1,  mtd_type_serial,  mtd_format_raw,       mtd_image_other,          mtd_bank_none,   0, 1, 1},
  {"/dev/mtd10",  "ubi0",           -1,  mtd_type_nand,    mtd_format_ubi,       mtd_image_ubi0,           mtd_bank_none,   0, 1, 1},
  {"/dev/ubi0_0", "rootfs_1",       25,  mtd_type_ubi0,    mtd_format_ubifs,     mtd_image_rootfs,         mtd_bank_1,      0, 0, 0},
  {"/dev/ubi0_1", "rootfs_2",       25,  mtd_type_ubi0,    mtd_format_ubifs,     mtd_image_rootfs,         mtd_bank_2,      0, 0, 0},
  {"/dev/ubi0_2", "rootfs_single",  50,  mtd_type_ubi0,    mtd_format_ubifs,     mtd_image_rootfs,         mtd_bank_single, 0, 0, 0},
  {"/dev/ubi0_3", "vexo_private",    2,  mtd_type_ubi0,    mtd_format_ubifs,     mtd_image_privatefs,      mtd_bank_none,   0, 0, 0},
  {"/dev/ubi0_4", "vexo_user",       0,  mtd_type_ubi0,    mtd_format_ubifs,     mtd_image_userfs,         mtd_bank_none,   0, 0, 0},
};
// clang-format on

namespace {

// The first row from `row` on that matches.
template <typename Matches>
mtd_partition* find_row(const mtd_partition* previous, Matches matches) {
  mtd_partition* row =
      previous == nullptr ? mtd_config_table : mtd_config_table + (previous - mtd_config_table) + 1;
  for (; row != std::end(mtd_config_table); ++row) {
    if (matches(*row)) {
      return row;
    }
  }
  return nullptr;
}

bool image_matches(mtd_images row_image, mtd_images wanted) {
  if (wanted == mtd_image_kernel_rootfs) {
    return row_image == mtd_image_kernel || row_image == mtd_image_rootfs;
  }
  return row_image == wanted;
}

}  // namespace

int mtd_config_table_size() {
  return mtd_config_table_rows;
}

mtd_partition* mtd_get_by_type(const mtd_partition* previous, mtd_types type) {
  return find_row(previous,
                  [type](const mtd_partition& row) { return type == mtd_type_any || row.type == type; });
}

mtd_partition* mtd_get_by_image_and_bank(const mtd_partition* previous, mtd_images image, mtd_banks bank) {
  return find_row(previous, [image, bank](const mtd_partition& row) {
    return image_matches(row.image, image) && (bank == mtd_bank_any || row.bank == bank);
  });
}

mtd_partition* mtd_get_by_name(const char* name) {
  return find_row(nullptr, [name](const mtd_partition& row) { return strcmp(row.part_name, name) == 0; });
}

mtd_partition* mtd_get_by_dev_name(const char* dev_name) {
  return find_row(nullptr,
                  [dev_name](const mtd_partition& row) { return strcmp(row.dev_name, dev_name) == 0; });
}

const char* mtd_short_node(const mtd_partition& row) {
  constexpr size_t prefix = sizeof "/dev/" - 1;
  return strncmp(row.dev_name, "/dev/", prefix) == 0 ? row.dev_name + prefix : row.dev_name;
}
