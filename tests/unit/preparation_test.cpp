// What a network installation does from the saved headers alone: part x state of the flash, every message,
// every step failing.
#include "image/preparation.h"

#include "ubi_test.h"

namespace {

constexpr uint32_t all_types = 0xFFFFFFFF;
constexpr char saved[] = "/tmp/image.rom";

class preparation_test : public ubi_test {
 protected:
  preparation_test() {
    set_lebs(8, 8, 1, 0);
    put_ubi0(in_use);
  }

  // The headers of the parts, as the first transfer leaves them.
  void save(std::vector<part> parts) const {
    std::string headers;
    for (size_t i = 0; i < parts.size(); i++) {
      parts[i].next_flag = i + 1 < parts.size() ? 1 : 0;
      headers += parts[i].header();
    }
    root.write_file(saved, headers);
  }
  int prepare(const std::vector<part>& parts, uint32_t mask = all_types) const {
    save(parts);
    return image_prepare_system(saved, mtd_bank_2, mask);
  }
  int finalize(const std::vector<part>& parts, uint32_t mask = all_types) const {
    save(parts);
    return image_finalize_system(saved, mtd_bank_2, mask);
  }

  static inline const part bootloader = {.type = 2, .contents = "loader"};
  static inline const part boot_env = {.type = 3, .contents = "env"};
  static inline const part kernel = {.type = 4, .contents = "kernel"};
  static inline const part oem = {.type = 11, .contents = "<oem/>"};
  static inline const part archive = {.type = 12, .contents = "archive"};
  static inline const part ubifs = {.type = 13, .contents = "ubifs"};
  static inline const part python = {.type = 14, .contents = "python"};

  static std::string erase(int number) {
    return "/usr/sbin/flash_erase -q /dev/mtd" + std::to_string(number) + " 0 0";
  }
  static inline const std::string not_read = "ERROR: Failed to read downloaded image information\n";
};

// ---------------------------------------------------------------------------------------------- raw
// partitions

TEST_F(preparation_test, nand_partitions_are_erased_with_one_protected_or_not) {
  mtd_config_table[6].type = mtd_type_nand;
  EXPECT_EQ(prepare({kernel}), 1);
  EXPECT_EQ(root.shell_lines(),
            lines({"/usr/sbin/flash_unlock /dev/mtd6", erase(6), "/usr/sbin/flash_lock /dev/mtd6 0 -1"}));
}

TEST_F(preparation_test, a_boot_environment_is_passed_over_unless_the_flash_is_clean) {
  EXPECT_EQ(prepare({boot_env, kernel}), 1);
  EXPECT_EQ(root.shell_lines(), lines({erase(6)}));
  EXPECT_EQ(root.printed(), "NOTE: Skipping boot_env image because flash is not clean\n");
  root.forget();
  put_ubi0(erased);
  EXPECT_EQ(prepare({boot_env}), 1);
  EXPECT_EQ(root.shell_lines(), lines({erase(3)}));
  EXPECT_EQ(root.printed(), "");
}

// ---------------------------------------------------------------------------------------------- volumes

TEST_F(preparation_test, clean_flash_is_formatted_with_the_sizes_of_the_header) {
  put_ubi0(erased);
  save({archive});
  std::string header = root.read_file(saved);
  put_number(header, 204, 16);
  put_number(header, 212, 128);
  seal(header);
  root.write_file(saved, header);
  EXPECT_EQ(image_prepare_system(saved, mtd_bank_2, all_types), 1);
  EXPECT_EQ(root.env()["mtdparts"], "atmel_nand:128k(ubi0),-(user)");
  const lines all = root.shell_lines();
  EXPECT_EQ(std::count(all.begin(), all.end(), make_volume(0, "-s 16KiB", "rootfs_1")), 1);
}

// ---------------------------------------------------------------------------------------------- headers

TEST_F(preparation_test, every_step_is_told_at_verbosity_six) {
  log_level = 6;
  EXPECT_EQ(prepare({bootloader, {.type = 14, .contents = ""}}, 1U << 2), 1);
  const std::string destination = "VERBOSE: image_validate_destination: mtd_dev_name=/dev/ubi0_0\n";
  EXPECT_EQ(root.printed(), "VERBOSE: Preparing system for bootloader\n" + destination +
                                "VERBOSE: flash_erase_whole_partition mtd /dev/mtd2\n"
                                "VERBOSE: system(/usr/sbin/flash_erase /dev/mtd2 0 0)\n"
                                "VERBOSE: Preparing system for python_setup\n" +
                                destination);
  EXPECT_EQ(prepare({ubifs}), 1);
  EXPECT_NE(root.printed().find(destination + "VERBOSE: ubi_write_buffer_ubifs_fd mtd /dev/ubi0_1\n"
                                              "VERBOSE: system(/usr/sbin/ubiattach "),
            std::string::npos);
}

TEST_F(preparation_test, types_outside_the_mask_are_passed_over) {
  EXPECT_EQ(prepare({bootloader, kernel, ubifs}, 1U << 4), 1);
  EXPECT_EQ(root.shell_lines(), lines({erase(6)}));
  EXPECT_EQ(finalize({python}, 1U << 4), 1);
  EXPECT_EQ(root.shell_lines().size(), 1U);
}

TEST_F(preparation_test, headers_behind_the_last_one_do_not_count) {
  root.write_file(saved, kernel.header() + bootloader.header());
  EXPECT_EQ(image_prepare_system(saved, mtd_bank_2, all_types), 1);
  EXPECT_EQ(root.shell_lines(), lines({erase(6)}));
}

TEST_F(preparation_test, headers_that_are_missing_are_reported_by_both) {
  const part promising = {.type = 8, .contents = "x", .next_flag = 1};
  for (const std::string& headers : {std::string(), kernel.header().substr(0, 255), promising.header()}) {
    root.write_file(saved, headers);
    EXPECT_EQ(image_prepare_system(saved, mtd_bank_2, all_types), 0);
    EXPECT_EQ(root.printed(), not_read);
    EXPECT_EQ(image_finalize_system(saved, mtd_bank_2, all_types), 0);
    EXPECT_EQ(root.printed(), not_read);
  }
  root.remove(saved);
  EXPECT_EQ(image_prepare_system(saved, mtd_bank_2, all_types), 0);
  EXPECT_EQ(image_finalize_system(saved, mtd_bank_2, all_types), 0);
  EXPECT_EQ(root.printed(), not_read + not_read);
}

TEST_F(preparation_test, headers_that_are_bad_are_reported_by_both) {
  std::string header = kernel.header();
  header[20] = 1;
  root.write_file(saved, header);
  EXPECT_EQ(image_prepare_system(saved, mtd_bank_2, all_types), 0);
  EXPECT_EQ(image_finalize_system(saved, mtd_bank_2, all_types), 0);
  EXPECT_EQ(root.printed(), "ERROR: Bad image header\nERROR: Bad image header\n") << "the fault is not named";
  EXPECT_EQ(root.shell_lines(), lines());
}

TEST_F(preparation_test, root_file_systems_that_this_flash_does_not_take_are_reported_by_both) {
  const std::string refusal = "ERROR: No partition for rootfs image\nERROR: Bad image destination\n";
  EXPECT_EQ(prepare({{.type = 5, .contents = "jffs2"}, bootloader}), 0);
  EXPECT_EQ(root.printed(), refusal);
  EXPECT_EQ(finalize({{.type = 5, .contents = "jffs2"}, python}), 0);
  EXPECT_EQ(root.printed(), refusal);
  EXPECT_EQ(root.shell_lines(), lines());
}

TEST_F(preparation_test, a_part_for_no_partition_ends_the_preparation) {
  EXPECT_EQ(prepare({kernel, {.type = 6, .contents = ""}, bootloader}), 0);
  EXPECT_EQ(root.printed(), "ERROR: image_prepare_system: Can't find mtd for contents_type=6\n");
  EXPECT_EQ(root.shell_lines(), lines({erase(6)}));
}

}  // namespace
