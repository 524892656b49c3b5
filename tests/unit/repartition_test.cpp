// Changing partitions: the bytes of the three requests, the order of steps, each step failing.
#include "mtd/repartition.h"

#include "loader_test.h"

namespace {

constexpr uint32_t create = 0x40044D17;
constexpr uint32_t erase = 0x40044D18;
constexpr uint32_t merge = 0x40044D1B;

class repartition_test : public loader_test {
 protected:
  // The device names are read again exactly when this says so.
  void expect_printed(const std::string& text, bool names_read) {
    const std::string all = root.printed();
    const std::string reading = "VERBOSE: mtd_init_dev_names: bootstrap=/dev/mtd0\n";
    const size_t end = all.find(reading);
    EXPECT_EQ(all.substr(0, end), text);
    EXPECT_EQ(end != std::string::npos, names_read);
  }

  static std::string little_endian(uint64_t value) {
    std::string bytes;
    for (int shift = 0; shift < 64; shift += 8)
      bytes += static_cast<char>(value >> shift);
    return bytes;
  }

  // A record of the create request: name, size, offset, mask flags and padding.
  static std::string record(std::string name, uint64_t size, uint64_t offset) {
    name.resize(32);
    return hex(name + little_endian(size) + little_endian(offset) + std::string(8, '\0'));
  }
};

// ---------------------------------------------------------------------------------------------- split

TEST_F(repartition_test, split_creates_both_parts_in_the_old_one_and_then_drops_it) {
  EXPECT_TRUE(mtd_partition_split("ubi0", 0x5000000, 0x3000000));
  EXPECT_EQ(root.sequence(), lines({"ioctl /dev/mtd10 0x40044d17 " + record("ubi0", 0x5000000, 0) +
                                        record("user", 0x3000000, 0x5000000) + " -> 0",
                                    "ioctl /dev/mtd0 0x40044d18 0a000000 -> 0"}));
  EXPECT_STREQ(mtd_config_table[10].dev_name, "/dev/mtd11") << "the new one has a new number";
  EXPECT_EQ(root.printed(), "");
}

TEST_F(repartition_test, split_reports_progress) {
  log_level = 6;
  EXPECT_TRUE(mtd_partition_split("ubi0", 0x5000000, 0x3000000));
  expect_printed("PROGRESS: ubi0 created on /dev/mtd10\nPROGRESS: /dev/mtd10 deleted\n", true);
  log_level = 7;
  EXPECT_FALSE(mtd_partition_split("nothing", 1, 0xFFFFFFFFFFFFFFFF));
  expect_printed("TRACE: mtd_partition_split: part_name=nothing size1=1 size2=18446744073709551615\n", false);
}

TEST_F(repartition_test, split_carries_sizes_of_64_bits) {
  root.answer_ioctl(create, "");
  root.answer_ioctl(erase, "");
  EXPECT_TRUE(mtd_partition_split("ubi0", 0x123456789A, 0xFEDCBA9876543210));
  EXPECT_EQ(root.events("ioctl")[0].fields[2],
            record("ubi0", 0x123456789A, 0) + record("user", 0xFEDCBA9876543210, 0x123456789A));
}

TEST_F(repartition_test, split_cuts_a_name_to_31_characters_and_its_end) {
  const std::string name(40, 'n');
  root.write_file("/proc/mtd", "mtd0: 00002000 00000100 \"" + name + "\"\n");
  root.answer_ioctl(create, "");
  root.answer_ioctl(erase, "");
  EXPECT_TRUE(mtd_partition_split(name.c_str(), 0x1000, 0x1000));
  EXPECT_EQ(root.events("ioctl")[0].fields[2].substr(0, 64),
            hex(std::string(31, 'n') + std::string(1, '\0')));
}

TEST_F(repartition_test, split_of_an_unknown_partition_fails_without_a_word) {
  log_level = 6;
  EXPECT_FALSE(mtd_partition_split("nothing", 1, 1));
  expect_printed("", false);
  root.remove("/proc/mtd");
  EXPECT_FALSE(mtd_partition_split("ubi0", 1, 1));
  expect_printed("", false);
  EXPECT_EQ(root.events("ioctl").size(), 0U);
}

// ---------------------------------------------------------------------------------------------- merge

class merge_test : public repartition_test {
 protected:
  merge_test() {
    root.set_partitions(
        {{"bootstrap", 0x20000}, {"ubi0", 0x5000000}, {"user", 0x3000000}, {"kernel_1", 0x10000}});
  }
};

TEST_F(merge_test, both_numbers_go_to_the_kernel_in_one_request) {
  root.trace("/dev/mtd");
  log_level = 6;
  EXPECT_TRUE(mtd_partition_merge("ubi0"));
  EXPECT_EQ(root.sequence(), lines({"ioctl /dev/mtd0 0x40044d1b 0102 -> 0"}));
  EXPECT_EQ(root.events("open")[0].fields, lines({"/dev/mtd0", "0", "0"}));
  expect_printed("VERBOSE: mtd_partition_merge: merge_mtd_nums=1,2\n", true);
  EXPECT_STREQ(mtd_config_table[10].dev_name, "/dev/mtd4");
}

TEST_F(merge_test, without_a_user_partition_nothing_is_asked) {
  root.set_partitions({{"bootstrap", 0x20000}, {"ubi0", 0x5000000}});
  log_level = 7;
  EXPECT_FALSE(mtd_partition_merge("ubi0"));
  expect_printed(
      "TRACE: mtd_partition_merge: part_name=ubi0\nVERBOSE: mtd_partition_merge: merge_mtd_nums=1,255\n",
      false);
  EXPECT_EQ(root.events("ioctl").size(), 0U);
}

TEST_F(merge_test, of_an_unknown_partition_asks_nothing) {
  log_level = 6;
  EXPECT_FALSE(mtd_partition_merge("nothing"));
  expect_printed("VERBOSE: mtd_partition_merge: merge_mtd_nums=255,2\n", false);
  EXPECT_EQ(root.events("ioctl").size(), 0U);
}

TEST_F(merge_test, that_cannot_open_the_first_partition_is_reported) {
  log_level = 6;
  root.fail_call("open", {.match = "/dev/mtd0", .error = EACCES});
  EXPECT_FALSE(mtd_partition_merge("ubi0"));
  expect_printed(
      "VERBOSE: mtd_partition_merge: merge_mtd_nums=1,2\nERROR: mtd_partition_merge: open(/dev/mtd0)\n",
      false);
}

TEST_F(merge_test, refused_by_the_kernel_is_reported_and_names_are_read) {
  log_level = 6;
  root.fail_ioctl(merge, EBUSY);
  EXPECT_FALSE(mtd_partition_merge("ubi0"));
  expect_printed(
      "VERBOSE: mtd_partition_merge: merge_mtd_nums=1,2\nERROR: mtd_partition_merge: mtd merge failed\n",
      true);
}

// ---------------------------------------------------------------------------------------------- resize

class resize_test : public repartition_test {
 protected:
  mtd_partition& kernel = mtd_config_table[5];
};

TEST_F(resize_test, replaces_the_partition_by_one_of_the_new_size) {
  log_level = 7;
  EXPECT_TRUE(mtd_partition_resize_and_move(&kernel, 0x100000));
  EXPECT_EQ(root.sequence(), lines({"ioctl /dev/mtd5 0x40044d17 " + record("kernel_1", 0x100000, 0) + " -> 0",
                                    "ioctl /dev/mtd0 0x40044d18 05000000 -> 0"}));
  expect_printed(
      "TRACE: mtd_partition_resize_and_move: dev=/dev/mtd5 size=1048576\n"
      "PROGRESS: kernel_1 created on /dev/mtd5\nPROGRESS: /dev/mtd5 deleted\n",
      true);
  EXPECT_STREQ(kernel.dev_name, "/dev/mtd11");
}

TEST_F(resize_test, whose_node_cannot_be_opened_fails_without_a_word) {
  log_level = 6;
  root.fail_call("open", {.match = "/dev/mtd5"});
  EXPECT_FALSE(mtd_partition_resize_and_move(&kernel, 0x100000));
  expect_printed("", false);
}

TEST_F(resize_test, reports_the_later_steps_like_a_split) {
  log_level = 6;
  root.fail_ioctl(create, ENOTTY);
  EXPECT_FALSE(mtd_partition_resize_and_move(&kernel, 0x100000));
  expect_printed("ERROR: partition creation failed on /dev/mtd5\n", true);
  root.drop_rules();
  root.answer_ioctl(create, "");
  root.fail_call("open", {.match = "/dev/mtd0", .times = 1});
  EXPECT_FALSE(mtd_partition_resize_and_move(&kernel, 0x100000));
  expect_printed(
      "PROGRESS: kernel_1 created on /dev/mtd5\n"
      "ERROR: mtd_partition_resize_and_move: File open error on /dev/mtd0\n",
      true);
  root.fail_ioctl(erase, EBUSY);
  EXPECT_FALSE(mtd_partition_resize_and_move(&kernel, 0x100000));
  expect_printed("PROGRESS: kernel_1 created on /dev/mtd5\nERROR: /dev/mtd5 deletion failed\n", true);
}

TEST_F(resize_test, of_a_volume_asks_nothing) {
  EXPECT_FALSE(mtd_partition_resize_and_move(&mtd_config_table[11], 0x100000));
  EXPECT_EQ(root.events("ioctl").size(), 0U);
}

}  // namespace
