// Where the contents types go, and which the device refuses.
#include "image/destination.h"

#include "loader_test.h"

namespace {

class image_destination_test : public loader_test {
 protected:
  // As if the root file systems lay in plain partitions.
  void put_rootfs_into_mtd() {
    static char node[] = "/dev/mtd20";
    for (int i = 11; i <= 13; i++)
      mtd_config_table[i].dev_name = node;
  }
};

// ---------------------------------------------------------------------------------------------- validation

TEST_F(image_destination_test, images_for_volumes_are_refused_while_root_file_systems_are_partitions) {
  put_rootfs_into_mtd();
  for (const uint32_t type : {10U, 12U, 13U}) {
    EXPECT_EQ(image_validate_destination(type), 0) << type;
    EXPECT_EQ(root.printed(), "ERROR: No UBI partition for rootfs image\n");
  }
  EXPECT_EQ(image_validate_destination(5), 1);
}

TEST_F(image_destination_test, a_table_without_root_file_systems_takes_nothing) {
  for (int i = 11; i <= 13; i++)
    mtd_config_table[i].image = mtd_image_other;
  EXPECT_EQ(image_validate_destination(1), 0);
  EXPECT_EQ(root.printed(), "ERROR: No rootfs partition found!\n");
}

TEST_F(image_destination_test, traces_type_and_node) {
  log_level = 7;
  EXPECT_EQ(image_validate_destination(13), 1);
  EXPECT_EQ(root.printed(),
            "TRACE: image_validate_destination: contents_type=13\n"
            "VERBOSE: image_validate_destination: mtd_dev_name=/dev/ubi0_0\n"
            "TRACE: mtd_name_to_erasesize: name=ubi0\n");
  log_level = 6;
  EXPECT_EQ(image_validate_destination(1), 1);
  EXPECT_EQ(root.printed(), "VERBOSE: image_validate_destination: mtd_dev_name=/dev/ubi0_0\n");
}

// ---------------------------------------------------------------------------------------------- rows

TEST_F(image_destination_test, every_type_finds_its_row_for_every_bank) {
  struct {
    uint32_t type;
    const char* rows[3];  // for bank 1, 2, single
    bool ubi;
    bool keeps_header;
    bool switches_bank;
  } constexpr cases[] = {
      {1, {"bootstrap", "bootstrap", "bootstrap"}, false, false, false},
      {2, {"bootloader", "bootloader", "bootloader"}, false, true, false},
      {3, {"bootenv_1", "bootenv_1", "bootenv_1"}, false, false, false},
      {4, {"kernel_1", "kernel_2", "kernel_single"}, false, true, true},
      {5, {"rootfs_1", "rootfs_2", "rootfs_single"}, true, false, true},
      {8, {"config_loader", "config_loader", "config_loader"}, false, true, false},
      {10, {"rootfs_1", "rootfs_2", "rootfs_single"}, true, false, true},
      {11, {"vexo_private", "vexo_private", "vexo_private"}, true, false, false},
      {12, {"rootfs_1", "rootfs_2", "rootfs_single"}, true, false, true},
      {13, {"rootfs_1", "rootfs_2", "rootfs_single"}, true, false, true},
      {14, {"vexo_user", "vexo_user", "vexo_user"}, true, false, false},
  };
  for (const auto& c : cases) {
    for (const mtd_banks bank : {mtd_bank_1, mtd_bank_2, mtd_bank_single}) {
      const mtd_partition* row = image_find_destination("caller", c.type, bank);
      ASSERT_NE(row, nullptr) << c.type << " " << bank;
      EXPECT_STREQ(row->part_name, c.rows[bank - 1]);
      EXPECT_EQ(image_destination_is_ubi(*row), c.ubi) << c.type;
    }
    EXPECT_EQ(image_contents_keep_header(c.type), c.keeps_header) << c.type;
    EXPECT_EQ(image_contents_switch_bank(c.type), c.switches_bank) << c.type;
  }
  EXPECT_EQ(root.printed(), "");
}

TEST_F(image_destination_test, types_without_a_row_are_reported_for_the_caller) {
  for (const uint32_t type : {0U, 6U, 7U, 9U, 15U, 0xFFFFFFFFU}) {
    EXPECT_EQ(image_find_destination("caller", type, mtd_bank_1), nullptr);
    EXPECT_EQ(root.printed(), "ERROR: caller: Can't find mtd for contents_type=" +
                                  std::to_string(static_cast<int>(type)) + "\n");
  }
}

TEST(image_mask_selects_test, bit_n_selects_type_n) {
  for (uint32_t type = 0; type < 32; type++) {
    EXPECT_TRUE(image_mask_selects(0xFFFFFFFF, type)) << type;
    EXPECT_TRUE(image_mask_selects(uint32_t{1} << type, type)) << type;
    EXPECT_FALSE(image_mask_selects(~(uint32_t{1} << type), type)) << type;
  }
  for (const uint32_t type : {32U, 33U, 36U, 0x80000004U, 0xFFFFFFFFU}) {
    EXPECT_FALSE(image_mask_selects(0xFFFFFFFF, type)) << type;
  }
}

TEST(image_mask_skips_test, only_types_with_a_destination_are_skipped) {
  for (uint32_t type = 0; type < 40; type++) {
    const bool has_one = (type >= 1 && type <= 5) || type == 8 || (type >= 10 && type <= 14);
    EXPECT_EQ(image_contents_has_destination(type), has_one) << type;
    EXPECT_EQ(image_mask_skips(0, type), has_one) << type;
    EXPECT_FALSE(image_mask_skips(0xFFFFFFFF, type)) << type;
  }
}

TEST(image_mask_selects_test, the_mask_of_the_downloads_selects_what_has_a_destination) {
  for (uint32_t type = 0; type < 32; type++) {
    const bool has_one = (type >= 1 && type <= 5) || type == 8 || (type >= 10 && type <= 14);
    EXPECT_EQ(image_mask_selects(0x7D3E, type), has_one) << type;
  }
}

}  // namespace
