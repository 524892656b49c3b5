// What counts as clean flash.
#include "flash/clean_check.h"

#include <mtd/mtd-user.h>
#include <sys/ioctl.h>

#include "loader_test.h"
#include "skeleton.h"
#include "util/signals.h"

namespace {

constexpr char node[] = "/dev/mtd0";
constexpr size_t size = 0x40000;
constexpr size_t block = 0x20000;

class flash_is_clean_test : public loader_test {
 protected:
  flash_is_clean_test() { root.set_partitions({{"ubi0", size, block}}); }
  void fill(const std::string& bytes) const { root.write_file(node, bytes); }
  // All bytes erased but one.
  static std::string with_byte(size_t offset, char value) {
    std::string bytes(size, '\xFF');
    bytes[offset] = value;
    return bytes;
  }
};

TEST_F(flash_is_clean_test, all_ones_are_clean) {
  fill(std::string(size, '\xFF'));
  EXPECT_TRUE(flash_is_clean(node));
  EXPECT_EQ(root.printed(), "");
}

TEST_F(flash_is_clean_test, a_single_cleared_bit_anywhere_is_not) {
  for (const size_t offset : {size_t{0}, size_t{3}, size_t{1023}, size_t{1024}, block - 1, block, size - 1}) {
    fill(with_byte(offset, '\xFE'));
    EXPECT_FALSE(flash_is_clean(node)) << offset;
  }
}

TEST_F(flash_is_clean_test, every_call_pauses_two_seconds_before_it_opens_the_device) {
  fill(std::string(size, '\xFF'));
  root.trace(node);
  EXPECT_TRUE(flash_is_clean(node));
  EXPECT_EQ(root.sleeps(), std::vector<double>({2}));
  EXPECT_EQ(root.events()[0].kind, "sleep");
  EXPECT_EQ(root.events("open")[0].fields, lines({node, "0", "0"}));
  EXPECT_FALSE(flash_is_clean("/dev/mtd99"));
  EXPECT_EQ(root.sleeps(), std::vector<double>({2, 2})) << "even one without a device";
}

TEST_F(flash_is_clean_test, reads_chunks_of_1024_and_stops_at_the_first_dirty_one) {
  fill(with_byte(2048, 0));
  root.trace(node);
  EXPECT_FALSE(flash_is_clean(node));
  const std::vector<device_event> reads = root.events("read");
  ASSERT_EQ(reads.size(), 3U);
  EXPECT_EQ(reads[0].fields[1], "1024");
}

TEST_F(flash_is_clean_test, bad_blocks_do_not_count) {
  std::string bytes(size, '\xFF');
  bytes.replace(0, block, block, '\0');
  fill(bytes);
  EXPECT_FALSE(flash_is_clean(node));
  std::string bad;
  for (size_t offset = 0; offset < block; offset += 1024)
    bad += "0 " + std::to_string(offset) + "\n";
  root.write_file(BAD_BLOCKS_FILE, bad);
  EXPECT_TRUE(flash_is_clean(node));
  bytes[size - 1] = 0;
  fill(bytes);
  EXPECT_FALSE(flash_is_clean(node)) << "the good blocks behind a bad one still count";
}

TEST_F(flash_is_clean_test, blocks_are_read_when_nobody_knows_whether_they_are_bad) {
  fill(std::string(size, '\xFF'));
  root.fail_ioctl(MEMGETBADBLOCK, EOPNOTSUPP);
  EXPECT_TRUE(flash_is_clean(node));
  fill(with_byte(5, 0));
  EXPECT_FALSE(flash_is_clean(node));
}

TEST_F(flash_is_clean_test, what_cannot_be_read_is_not_clean) {
  fill(std::string(size, '\xFF'));
  root.fail_ioctl(MEMGETINFO, EIO);
  EXPECT_FALSE(flash_is_clean(node));
  root.drop_rules();
  root.fail_call("read", {.match = node, .error = EIO, .times = 1});
  EXPECT_FALSE(flash_is_clean(node));
  root.fail_call("read", {.match = node, .error = 0, .result = 1023, .after = 7, .times = 1});
  EXPECT_FALSE(flash_is_clean(node)) << "a short read";
  root.answer_ioctl(MEMGETBADBLOCK, "", 1);
  root.fail_call("lseek", {.match = node, .error = EIO});
  EXPECT_FALSE(flash_is_clean(node)) << "a seek over a bad block";
  EXPECT_EQ(root.printed(), "");
}

// ---------------------------------------------------------------------------------------------- Ctrl-C

TEST_F(flash_is_clean_test, ctrl_c_ends_it_in_a_command_that_hears_ctrl_c) {
  fill(std::string(size, '\xFF'));
  root.trace(node);
  ASSERT_TRUE(sigint_install_test_interrupt());
  raise(SIGINT);
  EXPECT_FALSE(flash_is_clean(node));
  EXPECT_EQ(root.events("read").size(), 0U);
  ASSERT_TRUE(sigint_install_test_interrupt());
  EXPECT_TRUE(flash_is_clean(node)) << "an earlier one is forgotten";
}

TEST_F(flash_is_clean_test, an_earlier_ctrl_c_does_not_make_clean_flash_dirty) {
  fill(std::string(size, '\xFF'));
  ASSERT_TRUE(sigint_install_test_interrupt());
  raise(SIGINT);
  ASSERT_TRUE(sigint_install_ignore());
  EXPECT_EQ(test_interrupted, 1);
  EXPECT_TRUE(flash_is_clean(node));
}

TEST_F(flash_is_clean_test, traces_its_device) {
  log_level = 7;
  flash_is_clean("/dev/mtd99");
  EXPECT_EQ(root.printed(), "TRACE: flash_is_clean: /dev/mtd99\n");
}

}  // namespace
