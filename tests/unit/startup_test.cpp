// What start-up makes of the flash: the size of the UBI partition, its split, the device names.
#include "mtd/startup.h"

#include "loader_test.h"

namespace {

class mtd_init_test : public loader_test {
 protected:
  lines requests() const {
    lines numbers;
    for (const device_event& event : root.events("ioctl"))
      numbers.push_back(event.fields[0] + " " + event.fields[1]);
    return numbers;
  }
};

TEST_F(mtd_init_test, names_are_read_even_when_nothing_is_split) {
  root.write_file("/proc/mtd", "mtd3: 00001000 00000100 \"kernel_1\"\n");
  mtd_init();
  EXPECT_STREQ(mtd_config_table[5].dev_name, "/dev/mtd3");
}

TEST_F(mtd_init_test, a_partition_that_was_split_before_is_found_again) {
  root.set_partitions({{"bootstrap", 0x20000}, {"ubi0", 0x5000000, 0x20000}, {"user", 0x3000000, 0x20000}});
  root.set_env("mtdparts", "atmel_nand:81920k(ubi0),-(user)");
  mtd_init();
  EXPECT_EQ(ubi0_mtd_size_max, 0x5000000U);
  EXPECT_EQ(requests(), lines());
}

TEST_F(mtd_init_test, sizes_are_compared_with_64_bits) {
  root.write_file("/proc/mtd", "mtd10: 100001000 00020000 \"ubi0\"\n");
  root.set_env("mtdparts", "atmel_nand:4194304k(ubi0),-(user)");
  root.answer_ioctl(0x40044D17, "");
  root.answer_ioctl(0x40044D18, "");
  mtd_init();
  EXPECT_EQ(ubi0_mtd_size_max, 0x100001000U);
  const std::string records = root.events("ioctl")[0].fields[2];
  EXPECT_EQ(records.substr(64, 16), "0000000001000000") << "4 GiB";
  EXPECT_EQ(records.substr(112 + 64, 16), "0010000000000000") << "and the rest";
}

TEST_F(mtd_init_test, a_partition_listed_without_a_name_gives_the_size) {
  root.write_file("/proc/mtd", "mtd0: 00020000 00010000 \"bootstrap\"\nmtd1: 04000000 00020000 \"<NULL>\"\n");
  mtd_init();
  EXPECT_EQ(ubi0_mtd_size_max, 0x4000000U);
  EXPECT_EQ(requests(), lines());
}

}  // namespace
