// The bank schema: state of the device x target volume.
#include "ubi/schema.h"

#include "ubi_test.h"

namespace {

class ubi_schema_test : public ubi_test {
 protected:
  int change_for(const char* bank, const char* target) {
    root.set_env("bootbank", bank);
    root.forget();
    return ubi_change_rootfs_schema_if_needed(target);
  }
  static inline const std::string to_single = "NOTE: Changing rootfs bank schema for ubi0 to 'single'\n";
  static inline const std::string to_dual = "NOTE: Changing rootfs bank schema for ubi0 to 'dual'\n";
};

TEST_F(ubi_schema_test, a_volume_of_the_schema_in_use_changes_nothing) {
  struct {
    const char* bank;
    const char* target;
    int lebs[4];
    const char* name;
  } const cases[] = {
      {"single", "/dev/ubi0_2", {1, 1, 599, 0}, "single"},
      {"1", "/dev/ubi0_1", {300, 300, 1, 0}, "dual"},
      {"2", "/dev/ubi0_0", {300, 300, 1, 0}, "dual"},
      {"Single", "/dev/ubi0_2", {300, 300, 1, 0}, "dual"},
      {"", "/dev/ubi0_2", {1, 1, 599, 0}, "dual"},
      {"", "/dev/ubi0_0", {1, 1, 599, 0}, "dual"},
  };
  log_level = 6;
  for (const auto& each : cases) {
    set_lebs(each.lebs[0], each.lebs[1], each.lebs[2], each.lebs[3]);
    EXPECT_EQ(change_for(each.bank, each.target), 1) << each.bank << " " << each.target;
    EXPECT_EQ(root.shell_lines(), schema_check);
    EXPECT_NE(root.printed().find("VERBOSE: No rootfs bank schema change needed. Still '" +
                                  std::string(each.name) + "'\n"),
              std::string::npos);
  }
}

TEST_F(ubi_schema_test, two_banks_share_what_the_single_one_gives_up) {
  set_lebs(1, 1, 599, 0);
  EXPECT_EQ(change_for("single", "/dev/ubi0_0"), 1);
  EXPECT_EQ(root.shell_lines(), joined({schema_check, {resize(2, 1), resize(0, 300), resize(1, 300)}}));
  EXPECT_EQ(root.printed(), to_dual);
}

TEST_F(ubi_schema_test, free_blocks_count_and_an_odd_one_stays_free) {
  set_lebs(1, 1, 598, 2);
  EXPECT_EQ(change_for("single", "/dev/ubi0_1"), 1);
  EXPECT_EQ(root.shell_lines().back(), resize(1, 300));
}

TEST_F(ubi_schema_test, a_layout_that_contradicts_the_boot_bank_is_refused) {
  set_lebs(300, 300, 1, 0);
  EXPECT_EQ(change_for("single", "/dev/ubi0_2"), 0);
  EXPECT_EQ(root.printed(),
            "ERROR: Rootfs schema mismatch. Expected single, detected dual.\n"
            "NOTE: Try full \"flash clean\" first.\n");
  set_lebs(1, 1, 599, 0);
  EXPECT_EQ(change_for("2", "/dev/ubi0_1"), 0);
  EXPECT_EQ(root.printed(),
            "ERROR: Rootfs schema mismatch. Expected dual, detected single.\n"
            "NOTE: Try full \"flash clean\" first.\n");
  EXPECT_EQ(root.shell_lines(), lines({get_bank}));
}

TEST_F(ubi_schema_test, a_size_that_is_not_known_is_refused_before_any_change) {
  for (const char* missing :
       {"ubi0_0/reserved_ebs", "ubi0_1/reserved_ebs", "ubi0_2/reserved_ebs", "avail_eraseblocks"}) {
    set_lebs(300, 300, 1, 0);
    root.remove("/sys/class/ubi/ubi0/" + std::string(missing));
    EXPECT_EQ(change_for("1", "/dev/ubi0_2"), 0) << missing;
    EXPECT_EQ(root.printed(), "ERROR: Failed to discover all current rootfs volume sizes\n");
    EXPECT_EQ(root.shell_lines(), lines({get_bank}));
  }
}

TEST_F(ubi_schema_test, the_first_resize_that_fails_ends_the_change) {
  set_lebs(300, 300, 1, 0);
  root.answer("ubirsvol", {.when = "-n 1", .status = 1});
  EXPECT_EQ(change_for("1", "/dev/ubi0_2"), 0);
  EXPECT_EQ(root.shell_lines(), joined({schema_check, {resize(0, 1), resize(1, 1)}}));
  EXPECT_EQ(root.printed(), to_single + "ERROR: Failed to resize volume rootfs_2 to 1 LEBs\n");
}

TEST_F(ubi_schema_test, a_device_too_small_for_two_banks_is_not_resized_to_nothing) {
  set_lebs(0, 0, 2, 0);
  EXPECT_EQ(change_for("single", "/dev/ubi0_0"), 0);
  EXPECT_EQ(root.printed(), to_dual +
                                "ERROR: Cannot resize /dev/ubi0_0 to 0 LEBs\n"
                                "ERROR: Failed to resize volume rootfs_1 to 0 LEBs\n");
}

// Only a single bank of exactly one block is out of use.
TEST_F(ubi_schema_test, a_single_bank_of_none_or_two_blocks_counts_as_in_use) {
  for (const int lebs : {0, 2}) {
    set_lebs(300, 300, lebs, 0);
    EXPECT_EQ(change_for("1", "/dev/ubi0_1"), 0) << lebs;
    EXPECT_EQ(root.printed(),
              "ERROR: Rootfs schema mismatch. Expected dual, detected single.\n"
              "NOTE: Try full \"flash clean\" first.\n");
    EXPECT_EQ(change_for("single", "/dev/ubi0_2"), 1) << lebs;
    EXPECT_EQ(root.printed(), "");
  }
}

TEST_F(ubi_schema_test, a_number_of_blocks_that_no_flash_has_is_not_known) {
  for (const char* number : {"5000000000", "536870912", "99999999999999999999"}) {
    set_lebs(1, 1, 599, 0);
    set_attribute("ubi0_2/reserved_ebs", std::string(number) + "\n");
    EXPECT_EQ(change_for("single", "/dev/ubi0_0"), 0) << number;
    EXPECT_EQ(root.printed(), "ERROR: Failed to discover all current rootfs volume sizes\n");
    set_lebs(1, 1, 599, 0);
    set_attribute("avail_eraseblocks", std::string(number) + "\n");
    EXPECT_EQ(change_for("single", "/dev/ubi0_0"), 0) << number;
    EXPECT_EQ(root.printed(), "ERROR: Failed to discover all current rootfs volume sizes\n");
    EXPECT_EQ(root.shell_lines(), lines({get_bank}));
  }
}

TEST_F(ubi_schema_test, a_table_that_lacks_one_of_the_three_changes_nothing) {
  for (const int missing : {11, 12}) {
    set_lebs(300, 300, 1, 0);
    const mtd_types type = std::exchange(mtd_config_table[missing].type, mtd_type_nand);
    EXPECT_EQ(change_for("1", "/dev/ubi0_2"), 0);
    EXPECT_EQ(root.shell_lines(), schema_check);
    EXPECT_EQ(root.printed(), to_single);
    mtd_config_table[missing].type = type;
  }
}

TEST_F(ubi_schema_test, a_volume_that_is_not_in_the_table_is_refused) {
  set_lebs(1, 1, 599, 0);
  EXPECT_EQ(change_for("single", "/dev/ubi0_9"), 0);
  EXPECT_EQ(root.printed(), "ERROR: No entry in mtd table for /dev/ubi0_9\n");
}

TEST_F(ubi_schema_test, the_check_is_traced_under_its_own_name) {
  set_lebs(300, 300, 1, 5);
  log_level = 7;
  change_for("1", "/dev/ubi0_1");
  const std::string said = root.printed();
  EXPECT_EQ(said.find("TRACE: ubi_change_rootfs_schema_if_needed: mtd_dev_name=/dev/ubi0_1\n"
                      "TRACE: ubi_check_rootfs_schema_consistency:\n"),
            0u);
  EXPECT_NE(said.find("VERBOSE: Current # of LEB's: 1=300 2=300 S=1 free=5\n"), std::string::npos);
}

}  // namespace
