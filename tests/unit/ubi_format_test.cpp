// Formatting the UBI device: what is run in which order, and what each failure leaves undone.
#include "ubi/format.h"

#include "ubi_test.h"

namespace {

class ubi_format_test : public ubi_test {
 protected:
  static inline const std::string format = "/usr/sbin/ubiformat /dev/mtd10 -y -q";
  static constexpr uint32_t create = 0x40044D17;
  static constexpr uint32_t merge = 0x40044D1B;
};

TEST_F(ubi_format_test, arguments_and_sizes_are_told_before_anything_is_done) {
  log_level = 7;
  EXPECT_EQ(ubi_format("ubi0", 0, 0), 1);
  EXPECT_TRUE(root.printed().starts_with(
      "TRACE: ubi_format: ubi_dev_name=ubi0 rootfs_size_kib=0 total_size_kib=0\n"
      "VERBOSE: ubi_format: ubi_dev_name=ubi0 rootfs_size=33554432 total_size=134217728\n"
      "TRACE: ubi_detach: ubi_dev_name=ubi0\n"));
}

TEST_F(ubi_format_test, the_format_tool_is_quiet_below_progress) {
  for (const auto& [level, line] : {std::pair{4u, "/usr/sbin/ubiformat /dev/mtd10 -y -q"},
                                    std::pair{5u, "/usr/sbin/ubiformat /dev/mtd10 -y"},
                                    std::pair{6u, "/usr/sbin/ubiformat /dev/mtd10 -y"}}) {
    log_level = level;
    root.forget();
    EXPECT_EQ(ubi_format("ubi0", 0, 0), 1);
    EXPECT_EQ(root.shell_lines()[1], line);
  }
}

TEST_F(ubi_format_test, a_smaller_total_splits_records_and_erases_first) {
  EXPECT_EQ(ubi_format("ubi0", 20480, 81920), 1);
  EXPECT_EQ(root.events("ioctl").size(), 2u);
  EXPECT_EQ(root.env()["mtdparts"], "atmel_nand:81920k(ubi0),-(user)");
  EXPECT_NE(root.read_file("/proc/mtd").find(": 05000000 00020000 \"ubi0\"\n"), std::string::npos);
  const lines all = root.shell_lines();
  EXPECT_EQ(
      lines(all.begin(), all.begin() + 4),
      lines({detach, "/usr/sbin/fw_setenv mtdparts \"atmel_nand:81920k(ubi0),-(user)\" > /dev/null 2>&1",
             "/usr/sbin/flash_erase -q /dev/mtd11 0 0", "/usr/sbin/ubiformat /dev/mtd11 -y -q"}));
  // Per cents stay those of the unsplit partition.
  EXPECT_NE(std::find(all.begin(), all.end(), make_volume(3, "-s 2621KiB", "vexo_private")), all.end());
  EXPECT_NE(std::find(all.begin(), all.end(), make_volume(0, "-s 20480KiB", "rootfs_1")), all.end());
}

TEST_F(ubi_format_test, a_larger_total_merges) {
  root.set_partitions({{"bootstrap", 0x20000}, {"ubi0", 0x5000000, 0x20000}, {"user", 0x3000000, 0x20000}});
  EXPECT_EQ(ubi_format("ubi0", 0, 0), 1);
  const auto requests = root.events("ioctl");
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].text().find("ioctl /dev/mtd0 0x40044d1b 0102"), 0u) << requests[0].text();
  EXPECT_EQ(root.env()["mtdparts"], "atmel_nand:131072k(ubi0),-(user)");
}

TEST_F(ubi_format_test, a_failed_split_stops_before_anything_is_erased) {
  root.fail_ioctl(create, EBUSY);
  EXPECT_EQ(ubi_format("ubi0", 0, 81920), 0);
  EXPECT_EQ(root.shell_lines(), lines({detach}));
  EXPECT_EQ(root.printed(), "ERROR: partition creation failed on /dev/mtd10\n");
}

TEST_F(ubi_format_test, a_table_without_the_partition_stops_before_anything_is_changed) {
  mtd_config_table[10].part_name = "nand";
  EXPECT_EQ(ubi_format("ubi0", 0, 0), 0);
  EXPECT_EQ(ubi_format("ubi0", 0, 81920), 0);
  EXPECT_EQ(root.shell_lines(), lines({detach, detach}));
  EXPECT_EQ(root.events("ioctl").size(), 0u);
}

TEST_F(ubi_format_test, a_size_that_cannot_be_recorded_stops) {
  root.answer("fw_setenv", {.status = 1});
  EXPECT_EQ(ubi_format("ubi0", 0, 81920), 0);
  EXPECT_EQ(root.shell_lines().size(), 2u);
  EXPECT_NE(root.printed().find("ERROR: Failed to set mtdparts=atmel_nand:81920k(ubi0),-(user) in the boot "
                                "environment\n"),
            std::string::npos);
}

TEST_F(ubi_format_test, a_failed_erase_stops) {
  root.answer("flash_erase", {.status = 1});
  EXPECT_EQ(ubi_format("ubi0", 0, 81920), 0);
  EXPECT_EQ(root.shell_lines().back(), "/usr/sbin/flash_erase -q /dev/mtd11 0 0");
}

TEST_F(ubi_format_test, a_failed_attach_makes_no_volumes_and_detaches) {
  root.answer("ubiattach", {.status = 1});
  EXPECT_EQ(ubi_format("ubi0", 0, 0), 0);
  EXPECT_EQ(root.shell_lines(), lines({detach, format, attach, nodes, detach}));
}

TEST_F(ubi_format_test, the_first_volume_that_fails_ends_the_walk) {
  root.answer("ubimkvol", {.when = "rootfs_2", .status = 1});
  EXPECT_EQ(ubi_format("ubi0", 0, 0), 0);
  EXPECT_EQ(root.shell_lines(),
            lines({detach, format, attach, nodes, make_volume(0, "-s 32768KiB", "rootfs_1"), nodes,
                   make_volume(1, "-s 32768KiB", "rootfs_2"), detach}));
}

TEST_F(ubi_format_test, a_partition_without_a_name_gives_its_size) {
  root.set_partitions({{"<NULL>", 0x8000000, 0x20000}});
  log_level = 6;
  EXPECT_EQ(ubi_format("ubi0", 0, 0), 1);
  const std::string said = root.printed();
  EXPECT_NE(said.find("VERBOSE: ubi_format: ubi_mtd_size_curr=134217728\n"), std::string::npos);
  EXPECT_NE(said.find("VERBOSE: ubi_format: ubi_dev_name=ubi0 rootfs_size=33554432 total_size=134217728\n"),
            std::string::npos);
}

TEST_F(ubi_format_test, the_total_wraps_at_32_bits) {
  log_level = 6;
  // 4 GiB and 128 MiB: what is left of it is the partition's size.
  EXPECT_EQ(ubi_format("ubi0", 0, 0x400000 + 131072), 1);
  EXPECT_NE(root.printed().find(" total_size=134217728\n"), std::string::npos);
  EXPECT_EQ(root.events("ioctl").size(), 0u);
}

}  // namespace
