// Images in files: every fault that a check names, and installing the parts that go into raw flash.
#include "image/file_installation.h"

#include "loader_test.h"

namespace {

constexpr uint32_t all_types = 0xFFFFFFFF;
constexpr char path[] = "/tmp/image.rom";

const part bootstrap = {.type = 1, .contents = noise(900, 1)};
const part bootloader = {.type = 2, .contents = noise(2000, 2)};
const part boot_env = {.type = 3, .contents = noise(1024, 3)};
const part kernel = {.type = 4, .contents = noise(0x1ABC, 4)};
const part config_loader = {.type = 8, .contents = noise(1, 5)};

class image_file_test : public loader_test {
 protected:
  void put(const std::string& image) const { root.write_file(path, image); }
  // UBI partition at its real node, but small, so that it is quickly read: erased or not.
  void put_ubi0(char fill) const {
    lines names;
    std::vector<partition_row> rows;
    for (const mtd_partition& row : mtd_config_table) {
      if (row.volume_size == -1) rows.push_back({row.part_name, 0x10000});
    }
    root.set_partitions(rows);
    root.write_file("/dev/mtd10", std::string(0x10000, fill));
  }
  std::string flash(const std::string& node, size_t size) const {
    return root.read_file(node).substr(0, size);
  }
};

// ---------------------------------------------------------------------------------------------- validation

class image_validate_test : public image_file_test {
 protected:
  // The only thing printed about a faulty image.
  void expect_fault(const std::string& image, const std::string& message) {
    put(image);
    EXPECT_EQ(image_validate(path), 0);
    EXPECT_EQ(root.printed(), message);
  }
};

TEST_F(image_validate_test, an_image_whose_last_part_ends_the_file_is_good) {
  put(image_of({bootloader, kernel, {.type = 3, .contents = ""}, config_loader}));
  EXPECT_EQ(image_validate(path), 1);
  EXPECT_EQ(root.printed(), "");
}

TEST_F(image_validate_test, a_header_without_contents_is_an_image) {
  put(part{.type = 1, .contents = ""}.whole());
  EXPECT_EQ(image_validate(path), 1);
}

TEST_F(image_validate_test, the_file_ends_by_its_length_whatever_the_chaining_flags_say) {
  put(part{.type = 1, .contents = "a", .next_flag = 1}.whole());
  EXPECT_EQ(image_validate(path), 1);
  put(part{.type = 1, .contents = "a", .next_flag = 0}.whole() + kernel.whole());
  EXPECT_EQ(image_validate(path), 1);
}

TEST_F(image_validate_test, good_headers_and_contents_are_told_at_verbosity_six) {
  put(image_of({bootloader, config_loader}));
  log_level = 4;
  EXPECT_EQ(image_validate(path), 1);
  EXPECT_EQ(root.printed(), "INFO: image_validate: file=/tmp/image.rom\n");
  log_level = 6;
  EXPECT_EQ(image_validate(path), 1);
  const std::string destination = "VERBOSE: image_validate_destination: mtd_dev_name=/dev/ubi0_0\n";
  EXPECT_EQ(root.printed(),
            "INFO: image_validate: file=/tmp/image.rom\n"
            "VERBOSE: Found good image header: offset=0 type=2\n" +
                destination +
                "VERBOSE: Found good image contents: offset=0 size=2000\n"
                "VERBOSE: Found good image header: offset=2256 type=8\n" +
                destination + "VERBOSE: Found good image contents: offset=2256 size=1\n");
}

TEST_F(image_validate_test, files_below_a_header_are_too_small) {
  expect_fault("", "ERROR: image size too small file=/tmp/image.rom size=0\n");
  expect_fault(kernel.whole().substr(0, 255), "ERROR: image size too small file=/tmp/image.rom size=255\n");
}

TEST_F(image_validate_test, a_rest_below_a_header_is_a_short_header) {
  expect_fault(config_loader.whole() + "x", "ERROR: Short image header: size=1 expected=256\n");
  expect_fault(config_loader.whole() + std::string(255, 'x'),
               "ERROR: Short image header: size=255 expected=256\n");
}

TEST_F(image_validate_test, bad_headers_are_named_by_fault_and_offset) {
  expect_fault(std::string(256, 'x'), "ERROR: bad Header ID in header\nERROR: Bad image header: offset=0\n");
  expect_fault(bootloader.whole() + std::string(300, 'x'),
               "ERROR: bad Header ID in header\nERROR: Bad image header: offset=2256\n");
}

TEST_F(image_validate_test, refused_destinations_are_named) {
  expect_fault(part{.type = 10, .contents = "x"}.whole(),
               "ERROR: ubi0 erase size is 0x20000, ubifs image requires 0x4000\n");
  expect_fault(part{.type = 5, .contents = "x"}.whole(), "ERROR: No partition for rootfs image\n");
}

TEST_F(image_validate_test, the_destination_is_looked_at_before_the_contents) {
  expect_fault(part{.type = 5, .contents = "xyz"}.header(), "ERROR: No partition for rootfs image\n");
}

TEST_F(image_validate_test, contents_past_the_end_are_short) {
  expect_fault(kernel.whole().substr(0, kernel.whole().size() - 1),
               "ERROR: Short contents: size=6843 expected=6844\n");
  expect_fault(kernel.header(), "ERROR: Short contents: size=0 expected=6844\n");
}

TEST_F(image_validate_test, lengths_of_32_bits_do_not_wrap_past_the_end) {
  for (const uint32_t length : {0x7FFFFFFFU, 0x80000000U, 0xFFFFFF00U, 0xFFFFFFFFU}) {
    std::string header = kernel.header();
    put_number(header, 40, length);
    put_number(header, 44, length);
    seal(header);
    expect_fault(header + "x",
                 "ERROR: Short contents: size=1 expected=" + std::to_string(static_cast<int>(length)) + "\n");
  }
}

TEST_F(image_validate_test, contents_of_other_checksum_are_named_by_offset_and_size) {
  std::string image = image_of({bootloader, kernel});
  image.back() = static_cast<char>(image.back() ^ 1);
  expect_fault(image, "ERROR: Bad contents checksum: offset=2256 size=6844\n");
}

TEST_F(image_validate_test, contents_beyond_two_gigabytes_are_summed_whole) {
  part huge = {.type = 8, .contents = ""};
  std::string header = huge.header();
  for (const size_t offset : {40, 44})
    put_number(header, offset, 0x80000001);
  for (const size_t offset : {52, 92})
    put_number(header, offset, 0xFEFFFFFF);  // of 2^31 zeros and a 0x01
  seal(header);
  root.make_sparse(path, 256 + 0x80000001ULL);
  const int fd = open(path, O_WRONLY | O_CLOEXEC);
  EXPECT_EQ(pwrite(fd, header.data(), 256, 0), 256);
  EXPECT_EQ(pwrite(fd, "\x01", 1, 256 + 0x80000000LL), 1);
  close(fd);
  EXPECT_EQ(image_validate(path), 1);
  EXPECT_EQ(root.printed(), "");
}

// ---------------------------------------------------------------------------------------------- installation

class image_write_test : public image_file_test {};

TEST_F(image_write_test, raw_parts_go_to_their_partitions_and_the_bank_is_switched_last) {
  put(image_of({bootstrap, bootloader, kernel, config_loader}));
  EXPECT_EQ(image_write(path, mtd_bank_2, all_types), 1);
  EXPECT_EQ(flash("/dev/mtd0", 900), bootstrap.contents) << "without its header";
  part in_image = bootloader;
  in_image.next_flag = 1;
  EXPECT_EQ(flash("/dev/mtd2", 2256), in_image.whole()) << "with its header";
  in_image = kernel;
  in_image.next_flag = 1;
  EXPECT_EQ(flash("/dev/mtd6", 256 + 0x1ABC), in_image.whole());
  EXPECT_EQ(flash("/dev/mtd8", 257), config_loader.whole());
  EXPECT_EQ(root.shell_lines(),
            lines({"/usr/sbin/flash_unlock /dev/mtd0", "/usr/sbin/flash_erase -q /dev/mtd0 0 0",
                   "/usr/sbin/flash_lock /dev/mtd0 0 -1", "/usr/sbin/flash_unlock /dev/mtd0",
                   "/usr/sbin/flash_lock /dev/mtd0 0 -1", "/usr/sbin/flash_unlock /dev/mtd2",
                   "/usr/sbin/flash_erase -q /dev/mtd2 0 0", "/usr/sbin/flash_lock /dev/mtd2 0 -1",
                   "/usr/sbin/flash_unlock /dev/mtd2", "/usr/sbin/flash_lock /dev/mtd2 0 -1",
                   "/usr/sbin/flash_erase -q /dev/mtd6 0 0", "/usr/sbin/flash_erase -q /dev/mtd8 0 0",
                   "/usr/sbin/fw_setenv kernel_size_2 1ABC > /dev/null 2>&1",
                   "/usr/sbin/fw_setenv bootbank 2 > /dev/null 2>&1"}));
  EXPECT_EQ(root.printed(), bootstrap.info() + bootloader.info() + kernel.info() + config_loader.info());
}

TEST_F(image_write_test, each_bank_has_its_kernel) {
  constexpr const char* nodes[] = {"/dev/mtd5", "/dev/mtd6", "/dev/mtd7"};
  put(kernel.whole());
  for (const mtd_banks bank : {mtd_bank_1, mtd_bank_2, mtd_bank_single}) {
    EXPECT_EQ(image_write(path, bank, all_types), 1);
    EXPECT_EQ(flash(nodes[bank - 1], 256 + 0x1ABC), kernel.whole());
    EXPECT_EQ(root.env()["bootbank"], mtd_bank_string[bank]);
  }
}

TEST_F(image_write_test, file_bank_and_counts_are_told_at_verbosity_four) {
  put(config_loader.whole());
  log_level = 4;
  EXPECT_EQ(image_write(path, mtd_bank_single, all_types), 1);
  EXPECT_EQ(root.printed(), "INFO: image_write: file=/tmp/image.rom bank=single\n" + config_loader.info() +
                                "INFO: Wrote 1 image parts, skipped 0\n");
}

TEST_F(image_write_test, parts_outside_the_mask_are_passed_over) {
  put(image_of({bootloader, kernel, config_loader}));
  log_level = 5;
  EXPECT_EQ(image_write(path, mtd_bank_1, 1U << 8), 1);
  const std::string printed = root.printed();
  EXPECT_NE(
      printed.find(bootloader.info() + "PROGRESS: Skipping image part: offset=256 type=2\n" + kernel.info() +
                   "PROGRESS: Skipping image part: offset=2512 type=4\n" + config_loader.info()),
      std::string::npos)
      << printed;
  EXPECT_TRUE(printed.ends_with("INFO: Wrote 1 image parts, skipped 2\n"));
  EXPECT_EQ(root.env()["bootbank"], "1");
  EXPECT_EQ(root.ran(), lines({"/usr/sbin/flash_erase /dev/mtd8 0 0"}));
}

TEST_F(image_write_test, a_boot_environment_is_skipped_while_the_flash_is_not_clean) {
  put_ubi0('\0');
  put(boot_env.whole());
  log_level = 4;
  EXPECT_EQ(image_write(path, mtd_bank_2, 0x7D3E), 1);
  EXPECT_EQ(root.printed(), "INFO: image_write: file=/tmp/image.rom bank=2\n" + boot_env.info() +
                                "NOTE: Skipping boot_env image because flash is not clean\n"
                                "INFO: Wrote 0 image parts, skipped 1\n");
  EXPECT_EQ(root.ran(), lines()) << "neither flash nor environment are touched";
}

TEST_F(image_write_test, a_boot_environment_goes_to_the_first_of_its_partitions_on_clean_flash) {
  put_ubi0('\xFF');
  put(boot_env.whole());
  EXPECT_EQ(image_write(path, mtd_bank_2, 0x7D3E), 1);
  EXPECT_EQ(flash("/dev/mtd3", 1024), boot_env.contents);
  EXPECT_EQ(root.env()["bootbank"], "1") << "no reason to switch";
}

TEST_F(image_write_test, a_type_without_a_destination_fails_the_installation) {
  put(image_of({kernel, {.type = 6, .contents = "x"}, bootloader}));
  log_level = 4;
  EXPECT_EQ(image_write(path, mtd_bank_2, all_types), 0);
  EXPECT_TRUE(
      root.printed().ends_with("ERROR: image_write: Can't find mtd for contents_type=6\n"
                               "INFO: Wrote 1 image parts, skipped 0\n"));
  EXPECT_EQ(flash("/dev/mtd6", 7), "KESTO-1") << "what was written stays";
  EXPECT_EQ(root.env()["bootbank"], "1");
  EXPECT_FALSE(root.env().contains("kernel_size_2"));
}

TEST_F(image_write_test, a_failed_write_ends_the_walk_and_leaves_the_environment) {
  put(image_of({bootloader, kernel, config_loader}));
  root.answer("flash_erase", {.when = "/dev/mtd6", .status = 1});
  log_level = 4;
  EXPECT_EQ(image_write(path, mtd_bank_2, all_types), 0);
  EXPECT_TRUE(root.printed().ends_with("INFO: Wrote 1 image parts, skipped 0\n"));
  EXPECT_EQ(root.ran().back(), "/usr/sbin/flash_erase -q /dev/mtd6 0 0");
}

TEST_F(image_write_test, a_failed_setting_fails_the_installation) {
  put(kernel.whole());
  root.answer("fw_setenv", {.when = "bootbank", .status = 1});
  EXPECT_EQ(image_write(path, mtd_bank_2, all_types), 0);
  EXPECT_TRUE(root.printed().ends_with("\nERROR: Failed to set bootbank=2 in the boot environment\n"));
}

TEST_F(image_write_test, files_are_opened_and_mapped_with_the_messages_of_the_check) {
  EXPECT_EQ(image_write("/tmp/nothing", mtd_bank_1, all_types), 0);
  EXPECT_TRUE(root.printed().starts_with("ERROR: open(/tmp/nothing) error(No such file or directory)\n"));
  put(std::string(12345, 'x'));
  root.fail_call("fstat", {.match = path, .error = EIO, .times = 1});
  EXPECT_EQ(image_write(path, mtd_bank_1, all_types), 0);
  EXPECT_TRUE(root.printed().starts_with("ERROR: stat(/tmp/image.rom) error(Input/output error)\n"));
  root.fail_call("mmap", {.match = "12345", .error = ENOMEM});
  EXPECT_EQ(image_write(path, mtd_bank_1, all_types), 0);
  EXPECT_TRUE(root.printed().starts_with("ERROR: mmap(len=12345) error(Cannot allocate memory)\n"));
  put("");
  EXPECT_EQ(image_write(path, mtd_bank_1, all_types), 0);
  EXPECT_EQ(root.printed(), "ERROR: image size too small file=/tmp/image.rom size=0\n");
}

TEST_F(image_write_test, contents_that_the_file_does_not_hold_are_not_written) {
  put(kernel.whole().substr(0, 1000));
  EXPECT_EQ(image_write(path, mtd_bank_1, all_types), 0);
  put(config_loader.whole() + "short");
  EXPECT_EQ(image_write(path, mtd_bank_1, 0), 0);
  EXPECT_EQ(root.ran(), lines());
}

}  // namespace
