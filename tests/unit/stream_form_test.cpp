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

class stream_form_test : public loader_test {
 protected:
  std::string flash(const std::string& node, size_t size) const {
    return root.read_file(node).substr(0, size);
  }
  void put_clean_ubi0() const {
    std::vector<partition_row> rows;
    for (const mtd_partition& row : mtd_config_table) {
      if (row.volume_size == -1) rows.push_back({row.part_name, 0x10000});
    }
    root.set_partitions(rows);
    root.write_file("/dev/mtd10", std::string(0x10000, '\xFF'));
  }
  // Nothing was told to the boot loader.
  void expect_bank_kept() const {
    EXPECT_EQ(root.env()["bootbank"], "1");
    EXPECT_FALSE(root.env().contains("kernel_size_2"));
  }
};

// ---------------------------------------------------------------------------------------------- installing

class image_write_fd_test : public stream_form_test {
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

TEST_F(image_write_fd_test, headers_may_take_thirty_seconds_to_begin_and_all_else_three) {
  const sender source(image_of({config_loader, config_loader}));
  root.trace("select");
  EXPECT_EQ(install(source), 1);
  EXPECT_EQ(root.sequence(), lines({"select 30", "select 3", "select 30", "select 3"}));
}

TEST_F(image_write_fd_test, a_header_in_pieces_waits_three_seconds_for_each_but_the_first) {
  const sender source(config_loader.whole());
  root.trace("select");
  root.fail_call("read", {.match = "pipe", .error = 0, .result = 100, .times = 1});
  EXPECT_EQ(install(source), 1);
  EXPECT_EQ(root.sequence()[0], "select 30");
  EXPECT_EQ(root.sequence()[1], "select 3");
  EXPECT_EQ(flash("/dev/mtd8", 272), config_loader.whole());
}

TEST_F(image_write_fd_test, good_headers_and_counts_are_told) {
  const sender source(config_loader.whole());
  log_level = 6;
  EXPECT_EQ(install(source), 1);
  EXPECT_EQ(root.printed(),
            "VERBOSE: Found good image header: type=8\n"
            "VERBOSE: image_validate_destination: mtd_dev_name=/dev/ubi0_0\n" +
                config_loader.info() +
                "VERBOSE: flash_write_buffer_fd received 16 bytes, written 16 bytes to flash\n"
                "INFO: Wrote 1 image parts, skipped 0\n");
}

TEST_F(image_write_fd_test, a_sender_that_never_starts_fails) {
  const sender source("");
  root.fail_call("select", {.error = 0, .result = 0});
  EXPECT_EQ(install(source), 0);
  EXPECT_EQ(root.printed(), "ERROR: Failed to write firmware image [Connection timed out]\n");
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

// The one test that waits for the real time-out.
TEST_F(image_write_fd_test,
       a_chaining_flag_that_promises_a_part_that_never_comes_fails_after_thirty_seconds) {
  const sender source(chained(kernel).whole());
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(install(source), 0);
  const std::chrono::duration<double> waited = std::chrono::steady_clock::now() - start;
  EXPECT_GE(waited.count(), 29.9);
  EXPECT_LT(waited.count(), 40.0);
  EXPECT_EQ(root.printed(), kernel.info() + "ERROR: Failed to write firmware image [Connection timed out]\n");
  expect_bank_kept();
}

TEST_F(image_write_fd_test, a_chaining_flag_that_ends_too_early_leaves_the_rest_in_the_stream) {
  sender source(config_loader.whole() + kernel.whole());
  EXPECT_EQ(install(source), 1);
  EXPECT_EQ(source.rest(), kernel.whole());
  expect_bank_kept();
}

TEST_F(image_write_fd_test, bad_headers_are_shown_and_numbered) {
  part garbled = kernel;
  std::string header = garbled.header();
  header[255] = 1;
  const sender source(chained(config_loader).whole() + header);
  EXPECT_EQ(install(source), 0);
  EXPECT_EQ(root.printed(), config_loader.info() + kernel.info() + "ERROR: Bad image header 1\n");
  const sender garbage(std::string(256, 'x'));
  EXPECT_EQ(install(garbage), 0);
  EXPECT_TRUE(root.printed().ends_with("ERROR: Bad image header 0\n"));
}

TEST_F(image_write_fd_test, the_fault_of_a_bad_header_is_named_only_at_verbosity_six) {
  log_level = 6;
  const sender garbage(std::string(256, 'x'));
  EXPECT_EQ(install(garbage), 0);
  EXPECT_TRUE(root.printed().starts_with("ERROR: bad Header ID in header\nImage info:\n"));
}

TEST_F(image_write_fd_test, a_refused_destination_ends_the_installation_before_anything_is_written) {
  const sender source(part{.type = 10, .contents = "x"}.whole());
  EXPECT_EQ(install(source), 0);
  EXPECT_EQ(root.printed(),
            "ERROR: ubi0 erase size is 0x20000, ubifs image requires 0x4000\nERROR: Bad image destination\n");
  EXPECT_EQ(root.ran(), lines());
}

TEST_F(image_write_fd_test, a_type_without_a_destination_fails_the_installation) {
  const part production_loader = {.type = 6, .contents = "x"};
  const sender source(production_loader.whole());
  EXPECT_EQ(install(source, 0xFFFFFFFF), 0);
  EXPECT_EQ(root.printed(), production_loader.info() +
                                "ERROR: Contents Type 6 not supported\n"
                                "ERROR: image_write_fd: Can't find mtd for contents_type=6\n");
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
  EXPECT_EQ(root.printed(),
            boot_env.info() + config_loader.info() + "INFO: Wrote 1 image parts, skipped 1\n");
  const std::vector<device_event> reads = root.events("read");
  ASSERT_GE(reads.size(), 41U);
  for (size_t i = 1; i <= 40; i++)
    EXPECT_EQ(reads[i].fields[1], "1");
  EXPECT_EQ(flash("/dev/mtd8", 272), config_loader.whole());
  EXPECT_EQ(flash("/dev/mtd3", 40), std::string(40, '\0'));
}

TEST_F(image_write_fd_test, a_boot_environment_alone_on_dirty_flash_touches_nothing_and_succeeds) {
  const sender source(boot_env.whole());
  log_level = 4;
  EXPECT_EQ(install(source), 1);
  EXPECT_EQ(root.printed(), boot_env.info() + "INFO: Wrote 0 image parts, skipped 1\n");
  EXPECT_EQ(root.ran(), lines());
}

TEST_F(image_write_fd_test, a_boot_environment_is_written_to_clean_flash) {
  put_clean_ubi0();
  const sender source(boot_env.whole());
  EXPECT_EQ(install(source), 1);
  EXPECT_EQ(flash("/dev/mtd3", 40), boot_env.contents);
}

TEST_F(image_write_fd_test, a_skipped_boot_environment_that_stops_early_fails) {
  const sender source(boot_env.header() + "short");
  root.fail_call("select", {.error = 0, .result = 0, .after = 6});
  EXPECT_EQ(install(source), 0);
  EXPECT_TRUE(root.printed().starts_with(boot_env.info() + "ERROR: Failed to "));
}

TEST_F(image_write_fd_test, contents_that_stop_fail_the_installation) {
  const sender source(kernel.whole().substr(0, 256 + 4096));
  root.fail_call("select", {.error = 0, .result = 0, .after = 2});
  EXPECT_EQ(install(source), 0);
  EXPECT_EQ(root.printed(), kernel.info() +
                                "ERROR: Failed to read firmware image [Connection timed out]\n"
                                "ERROR: Failed to write firmware image\n");
  expect_bank_kept();
}

TEST_F(image_write_fd_test, contents_of_other_checksum_fail_without_a_line_feed) {
  part other = kernel;
  other.contents[5] = static_cast<char>(other.contents[5] ^ 1);
  const sender source(kernel.header() + other.contents);
  EXPECT_EQ(install(source), 0);
  char message[100];
  snprintf(message, sizeof message, "ERROR: Failed checksum test: calculated 0x%x vs 0x%x",
           plain_checksum(other.contents), plain_checksum(kernel.contents));
  EXPECT_EQ(root.printed(), kernel.info() + message);
  expect_bank_kept();
}

TEST_F(image_write_fd_test, a_flash_that_cannot_be_locked_again_fails_the_installation) {
  const sender source(bootloader.whole());
  root.answer("flash_lock", {.status = 1});
  EXPECT_EQ(install(source), 0);
  EXPECT_TRUE(root.printed().ends_with("ERROR: Failed to write firmware image\n"));
}

// ---------------------------------------------------------------------------------------------- saved
// headers

TEST_F(image_write_fd_test, headers_equal_to_the_saved_ones_are_installed) {
  root.write_file(saved, chained(bootloader).header() + config_loader.header());
  const sender source(chained(bootloader).whole() + config_loader.whole());
  EXPECT_EQ(install(source, download_mask, saved), 1);
  EXPECT_EQ(root.printed(), bootloader.info() + config_loader.info());
}

TEST_F(image_write_fd_test, a_header_unlike_the_saved_one_fails_and_shows_that) {
  root.write_file(saved, chained(bootloader).header() + kernel.header());
  const sender source(chained(bootloader).whole() + config_loader.whole());
  EXPECT_EQ(install(source, download_mask, saved), 0);
  EXPECT_EQ(root.printed(), bootloader.info() + config_loader.info() +
                                "ERROR: Header 1 mismatch\nERROR: Expected header:\n" + kernel.info());
}

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

class image_get_headers_fd_test : public stream_form_test {
 protected:
  int look(const sender& source, const char* path = saved) {
    return image_get_headers_fd(source.fd(), mtd_bank_2, download_mask, path);
  }
};

TEST_F(image_get_headers_fd_test, all_headers_are_saved_and_nothing_is_written_to_flash) {
  sender source(chained(bootloader).whole() + chained(boot_env).whole() + kernel.whole() + "rest");
  root.write_file(saved, std::string(5000, 'x'));
  EXPECT_EQ(look(source), 1);
  EXPECT_EQ(root.read_file(saved),
            chained(bootloader).header() + chained(boot_env).header() + kernel.header());
  EXPECT_EQ(root.printed(), bootloader.info() + boot_env.info() + kernel.info());
  EXPECT_EQ(root.ran(), lines());
  EXPECT_EQ(source.rest(), "rest");
}

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

TEST_F(image_get_headers_fd_test, a_file_that_cannot_be_made_is_reported) {
  sender source(config_loader.whole());
  EXPECT_EQ(look(source, "/nowhere/image.rom"), 0);
  EXPECT_EQ(root.printed(), "ERROR: Failed to save image information\n");
  EXPECT_EQ(source.rest(), config_loader.whole());
}

TEST_F(image_get_headers_fd_test, a_sender_that_never_starts_is_reported) {
  const sender source("");
  root.fail_call("select", {.error = 0, .result = 0});
  EXPECT_EQ(look(source), 0);
  EXPECT_EQ(root.printed(), "ERROR: Failed to read image information\n");
}

TEST_F(image_get_headers_fd_test, a_header_cut_short_is_reported_with_its_count) {
  sender source(config_loader.header().substr(0, 100));
  source.hang_up();
  EXPECT_EQ(look(source), 0);
  EXPECT_TRUE(root.printed().starts_with("ERROR: Failed to read firmware header 100 / 256 bytes ["));
}

TEST_F(image_get_headers_fd_test, contents_cut_short_are_reported) {
  const sender source(config_loader.header() + "short");
  root.fail_call("select", {.error = 0, .result = 0, .after = 2});
  EXPECT_EQ(look(source), 0);
  EXPECT_EQ(root.printed(),
            config_loader.info() + "ERROR: Failed to read firmware data [Connection timed out]\n");
  root.drop_rules();
  sender ended(config_loader.header() + "short");
  ended.hang_up();
  EXPECT_EQ(look(ended), 0);
  EXPECT_TRUE(root.printed().starts_with(config_loader.info() + "ERROR: Failed to read firmware data ["));
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

TEST_F(image_get_headers_fd_test, refused_destinations_are_reported_after_good_headers) {
  const part wrong_blocks = {.type = 10, .contents = "x"};
  const sender source(wrong_blocks.whole());
  EXPECT_EQ(look(source), 0);
  EXPECT_EQ(root.printed(), wrong_blocks.info() +
                                "ERROR: ubi0 erase size is 0x20000, ubifs image requires 0x4000\n"
                                "ERROR: Bad image destination\n");
}

TEST_F(image_get_headers_fd_test, contents_of_other_checksum_are_reported_with_a_line_feed) {
  part other = kernel;
  other.contents[5] = static_cast<char>(other.contents[5] ^ 1);
  const sender source(chained(config_loader).whole() + kernel.header() + other.contents);
  EXPECT_EQ(look(source), 0);
  char message[100];
  snprintf(message, sizeof message, "ERROR: Failed checksum test: calculated 0x%x vs 0x%x\n",
           plain_checksum(other.contents), plain_checksum(kernel.contents));
  EXPECT_EQ(root.printed(), config_loader.info() + kernel.info() + message);
  EXPECT_EQ(root.read_file(saved), chained(config_loader).header());
}

TEST_F(image_get_headers_fd_test, a_full_file_system_is_reported) {
  const sender source(config_loader.whole());
  root.fail_call("write", {.match = saved, .error = 0, .result = 100});
  EXPECT_EQ(look(source), 0);
  EXPECT_EQ(root.printed(), config_loader.info() + "ERROR: Failed to save image information\n");
}

}  // namespace
