// The table itself. It is laid out like the board's flash map; check it against that, row by row.
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

namespace {

// The nodes before start-up has read the kernel's numbers.
char initial_nodes[mtd_config_table_rows][16] = {
    "/dev/mtd0",   "/dev/mtd1",   "/dev/mtd2",   "/dev/mtd3",   "/dev/mtd4",  "/dev/mtd5",
    "/dev/mtd6",   "/dev/mtd7",   "/dev/mtd8",   "/dev/mtd9",   "/dev/mtd10", "/dev/ubi0_0",
    "/dev/ubi0_1", "/dev/ubi0_2", "/dev/ubi0_3", "/dev/ubi0_4",
};

}  // namespace

// clang-format off
mtd_partition mtd_config_table[mtd_config_table_rows] = {
  // dev_name          part_name       size  type              format                image                     bank             p  c  t
  {initial_nodes[0],  "bootstrap",      -1,  mtd_type_serial,  mtd_format_firmware,  mtd_image_bootstrap,      mtd_bank_none,   1, 0, 0},
  {initial_nodes[1],  "prod_config",    -1,  mtd_type_serial,  mtd_format_tlv,       mtd_image_product_config, mtd_bank_none,   1, 0, 1},
  {initial_nodes[2],  "bootloader",     -1,  mtd_type_serial,  mtd_format_uboot_rom, mtd_image_bootloader,     mtd_bank_none,   1, 0, 1},
  {initial_nodes[3],  "bootenv_1",      -1,  mtd_type_serial,  mtd_format_uboot_env, mtd_image_boot_env,       mtd_bank_none,   1, 0, 1},
  {initial_nodes[4],  "bootenv_2",      -1,  mtd_type_serial,  mtd_format_uboot_env, mtd_image_boot_env,       mtd_bank_none,   1, 0, 1},
  {initial_nodes[5],  "kernel_1",       -1,  mtd_type_serial,  mtd_format_uimage,    mtd_image_kernel,         mtd_bank_1,      0, 0, 0},
  {initial_nodes[6],  "kernel_2",       -1,  mtd_type_serial,  mtd_format_uimage,    mtd_image_kernel,         mtd_bank_2,      0, 0, 0},
  {initial_nodes[7],  "kernel_single",  -1,  mtd_type_serial,  mtd_format_uimage,    mtd_image_kernel,         mtd_bank_single, 0, 1, 1},
  {initial_nodes[8],  "config_loader",  -1,  mtd_type_serial,  mtd_format_uimage,    mtd_image_config_loader,  mtd_bank_none,   0, 0, 1},
  {initial_nodes[9],  "param_space",    -1,  mtd_type_serial,  mtd_format_raw,       mtd_image_other,          mtd_bank_none,   0, 1, 1},
  {initial_nodes[10], "ubi0",           -1,  mtd_type_nand,    mtd_format_ubi,       mtd_image_ubi0,           mtd_bank_none,   0, 1, 1},
  {initial_nodes[11], "rootfs_1",       25,  mtd_type_ubi0,    mtd_format_ubifs,     mtd_image_rootfs,         mtd_bank_1,      0, 0, 0},
  {initial_nodes[12], "rootfs_2",       25,  mtd_type_ubi0,    mtd_format_ubifs,     mtd_image_rootfs,         mtd_bank_2,      0, 0, 0},
  {initial_nodes[13], "rootfs_single",  50,  mtd_type_ubi0,    mtd_format_ubifs,     mtd_image_rootfs,         mtd_bank_single, 0, 0, 0},
  {initial_nodes[14], "vexo_private",    2,  mtd_type_ubi0,    mtd_format_ubifs,     mtd_image_privatefs,      mtd_bank_none,   0, 0, 0},
  {initial_nodes[15], "vexo_user",       0,  mtd_type_ubi0,    mtd_format_ubifs,     mtd_image_userfs,         mtd_bank_none,   0, 0, 0},
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

bool image_matches(int row_image, int wanted) {
  if (wanted == mtd_image_kernel_rootfs) {
    return row_image == mtd_image_kernel || row_image == mtd_image_rootfs;
  }
  return row_image == wanted;
}

}  // namespace

int mtd_config_table_size() {
  return mtd_config_table_rows;
}

mtd_partition* mtd_get_by_type(const mtd_partition* previous, int type) {
  return find_row(previous,
                  [type](const mtd_partition& row) { return type == mtd_type_any || row.type == type; });
}

mtd_partition* mtd_get_by_image_and_bank(const mtd_partition* previous, int image, int bank) {
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
