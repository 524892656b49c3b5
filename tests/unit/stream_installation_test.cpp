// Images in streams: installed while they arrive, or looked at only.
#include "image/stream_installation.h"

#include <chrono>

#include "loader_test.h"

namespace {

constexpr uint32_t download_mask = 0x7D3E;
constexpr char saved[] = "/tmp/image.rom";

const part bootstrap = {.type = 1, .contents = noise(900, 1)};
const part bootloader = {.type = 2, .contents = noise(2000, 2)};
const part boot_env = {.type = 3, .contents = noise(40, 3)};
const part kernel = {.type = 4, .contents = noise(0x1ABC, 4)};
const part config_loader = {.type = 8, .contents = noise(16, 5)};

part chained(part p) {
  p.next_flag = 0x80000000;
  return p;
}

class image_stream_test : public loader_test {
 protected:
  std::string flash(const std::string& node, size_t size) const {
    return root.read_file(node).substr(0, size);
  }
};

// ---------------------------------------------------------------------------------------------- installing

class image_write_fd_test : public image_stream_test {
 protected:
  int install(const sender& source, uint32_t mask = download_mask, const char* headers = nullptr) {
    return image_write_fd(headers, source.fd(), mtd_bank_2, mask, 1);
  }
};

TEST_F(image_write_fd_test, raw_parts_go_to_their_partitions_and_the_bank_is_switched_last) {
  sender source(image_of({bootstrap, bootloader, kernel, config_loader}) + "what follows");
  EXPECT_EQ(install(source), 1);
  part in_image = bootloader;
  in_image.next_flag = 1;
  EXPECT_EQ(flash("/dev/mtd0", 900), bootstrap.contents);
  EXPECT_EQ(flash("/dev/mtd2", 2256), in_image.whole());
  EXPECT_EQ(flash("/dev/mtd6", 256 + 0x1ABC).substr(256), kernel.contents);
  EXPECT_EQ(flash("/dev/mtd8", 272), config_loader.whole());
  EXPECT_EQ(root.shell_lines(),
            lines({"/usr/sbin/flash_unlock /dev/mtd0", "/usr/sbin/flash_lock /dev/mtd0 0 -1",
                   "/usr/sbin/flash_unlock /dev/mtd2", "/usr/sbin/flash_lock /dev/mtd2 0 -1",
                   "/usr/sbin/fw_setenv kernel_size_2 1ABC > /dev/null 2>&1",
                   "/usr/sbin/fw_setenv bootbank 2 > /dev/null 2>&1"}))
      << "nothing is erased here";
  EXPECT_EQ(root.printed(), bootstrap.info() + bootloader.info() + kernel.info() + config_loader.info());
  EXPECT_EQ(source.rest(), "what follows");
}

TEST_F(image_write_fd_test, a_stream_that_ends_or_fails_within_a_header_fails) {
  sender source(config_loader.whole().substr(0, 255));
  source.hang_up();
  EXPECT_EQ(install(source), 0);
  EXPECT_TRUE(root.printed().starts_with("ERROR: Failed to write firmware image ["));
  const sender another(config_loader.whole());
  root.fail_call("read", {.match = "pipe", .error = EIO});
  EXPECT_EQ(install(another), 0);
  EXPECT_EQ(root.printed(), "ERROR: Failed to write firmware image [Input/output error]\n");
}

TEST_F(image_write_fd_test, a_part_outside_the_mask_is_skipped_without_taking_its_contents) {
  sender source(config_loader.whole());
  log_level = 5;
  EXPECT_EQ(install(source, 0), 1);
  EXPECT_EQ(root.printed(), config_loader.info() +
                                "PROGRESS: Skipping image part: type=8\n"
                                "INFO: Wrote 0 image parts, skipped 1\n");
  EXPECT_EQ(source.rest(), config_loader.contents);
}

TEST_F(image_write_fd_test,
       a_boot_environment_is_taken_off_the_stream_byte_by_byte_while_flash_is_not_clean) {
  sender source(image_of({boot_env, config_loader}));
  root.trace("pipe");
  log_level = 4;
  EXPECT_EQ(install(source), 1);
  EXPECT_EQ(root.printed(), boot_env.info() + "NOTE: Skipping boot_env image because flash is not clean\n" +
                                config_loader.info() + "INFO: Wrote 1 image parts, skipped 1\n");
  const std::vector<device_event> reads = root.events("read");
  ASSERT_GE(reads.size(), 41U);
  for (size_t i = 1; i <= 40; i++)
    EXPECT_EQ(reads[i].fields[1], "1");
  EXPECT_EQ(flash("/dev/mtd8", 272), config_loader.whole());
  EXPECT_EQ(flash("/dev/mtd3", 40), std::string(40, '\0'));
}

TEST_F(image_write_fd_test, a_stream_that_ends_within_a_skipped_boot_environment_fails) {
  sender source(boot_env.whole().substr(0, 256 + 39));
  source.hang_up();
  EXPECT_EQ(install(source), 0);
  EXPECT_EQ(root.printed(), boot_env.info() +
                                "NOTE: Skipping boot_env image because flash is not clean\n"
                                "ERROR: Failed to read firmware image [No data available]\n");
}

// ---------------------------------------------------------------------------------------------- saved
// headers

TEST_F(image_write_fd_test, more_headers_than_were_saved_fail) {
  root.write_file(saved, chained(bootloader).header() + std::string(255, 'x'));
  const sender source(chained(bootloader).whole() + config_loader.whole());
  EXPECT_EQ(install(source, download_mask, saved), 0);
  EXPECT_EQ(root.printed(),
            bootloader.info() + config_loader.info() + "ERROR: Failed to read image header 1\n");
}

TEST_F(image_write_fd_test, missing_saved_headers_fail_before_the_stream_is_touched) {
  sender source(config_loader.whole());
  EXPECT_EQ(install(source, download_mask, "/tmp/nothing"), 0);
  EXPECT_TRUE(root.printed().starts_with("ERROR: "));
  EXPECT_EQ(source.rest(), config_loader.whole());
}

// ---------------------------------------------------------------------------------------------- looking only

class image_get_headers_fd_test : public image_stream_test {
 protected:
  int look(const sender& source, const char* path = saved) {
    return image_get_headers_fd(source.fd(), mtd_bank_2, download_mask, path);
  }
};

TEST_F(image_get_headers_fd_test, headers_may_take_thirty_seconds_to_begin_and_all_else_three) {
  const sender source(chained(config_loader).whole() + config_loader.whole());
  root.trace("select");
  EXPECT_EQ(look(source), 1);
  EXPECT_EQ(root.sequence(), lines({"select 30", "select 3", "select 30", "select 3"}));
}

TEST_F(image_get_headers_fd_test, read_headers_are_told_at_verbosity_six) {
  const sender source(config_loader.whole());
  log_level = 6;
  EXPECT_EQ(look(source), 1);
  EXPECT_TRUE(
      root.printed().starts_with("VERBOSE: image_get_headers_fd read 256 header bytes\nImage info:\n"));
}

TEST_F(image_get_headers_fd_test, bad_headers_are_reported_after_their_contents_were_read) {
  std::string header = kernel.header();
  header[255] = 1;
  sender source(header + kernel.contents + "rest");
  EXPECT_EQ(look(source), 0);
  EXPECT_EQ(root.printed(), kernel.info() + "ERROR: Bad image header\n");
  EXPECT_EQ(source.rest(), "rest");
  EXPECT_EQ(root.read_file(saved), "");
}

TEST_F(image_get_headers_fd_test, a_full_file_system_is_reported) {
  const sender source(config_loader.whole());
  root.fail_call("write", {.match = saved, .error = 0, .result = 100});
  EXPECT_EQ(look(source), 0);
  EXPECT_EQ(root.printed(), config_loader.info() + "ERROR: Failed to save image information\n");
}

}  // namespace
