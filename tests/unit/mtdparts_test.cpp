// The size of the UBI partition in the boot environment.
#include "mtd/mtdparts.h"

#include "loader_test.h"

namespace {

class mtdparts_test : public loader_test {};

TEST_F(mtdparts_test, a_value_that_names_the_device_first_yields_its_size) {
  struct {
    const char* value;
    uint32_t kib;
  } constexpr cases[] = {
      {"atmel_nand:81920k(ubi0),-(user)", 81920},
      {"atmel_nand:1k(ubi0)", 1},
      {"atmel_nand:0k(ubi0),-(user)", 0},
      {"atmel_nand:4294967295k(ubi0),-(user)", 4294967295},
      {"atmel_nand:5k(ubi0", 5},
      {"atmel_nand:5k(ubi01),-(user)", 5},
      {"atmel_nand:5k(ubi0) and more", 5},
  };
  for (const auto& c : cases) {
    uint32_t kib = 7;
    root.set_env("mtdparts", c.value);
    EXPECT_TRUE(ubi_get_mtd_size_from_env("ubi0", &kib)) << c.value;
    EXPECT_EQ(kib, c.kib) << c.value;
  }
  EXPECT_EQ(root.shell_lines()[0], "/usr/sbin/fw_printenv -n mtdparts 2>/dev/null");
}

TEST_F(mtdparts_test, any_other_value_is_not_found_and_stores_nothing) {
  log_level = 6;
  for (const char* value :
       {"atmel_nand:81920k(user),-(ubi0)", "atmel_nand:81920k(ub", "atmel_nand:81920k(",
        "atmel_nand:81920k( ", "atmel_nand:81920M(ubi0),-(user)", "atmel_nand:k(ubi0),-(user)",
        "other_nand:81920k(ubi0),-(user)", "81920k(ubi0)", "atmel_nand:81920(ubi0)", "x"}) {
    uint32_t kib = 7;
    root.set_env("mtdparts", value);
    EXPECT_FALSE(ubi_get_mtd_size_from_env("ubi0", &kib)) << value;
    EXPECT_EQ(kib, 7U) << value;
    EXPECT_EQ(
        root.printed(),
        "VERBOSE: ubi_get_mtd_size_from_env: Failed to find mtdparts=atmel_nand:%uk(%s),-(%s) in the boot "
        "environment\n");
  }
}

TEST_F(mtdparts_test, a_missing_variable_is_not_found_and_not_mentioned_by_default) {
  uint32_t kib = 7;
  EXPECT_FALSE(ubi_get_mtd_size_from_env("ubi0", &kib));
  EXPECT_EQ(kib, 7U);
  EXPECT_EQ(root.printed(), "");
  log_level = 7;
  EXPECT_FALSE(ubi_get_mtd_size_from_env("ubi0", &kib));
  EXPECT_EQ(
      root.printed(),
      "TRACE: ubi_get_mtd_size_from_env:\nTRACE: uboot_env_get_val:\n"
      "VERBOSE: uboot_env_get_val: pclose() exit status=1\n"
      "VERBOSE: ubi_get_mtd_size_from_env: Failed to find mtdparts=atmel_nand:%uk(%s),-(%s) in the boot "
      "environment\n");
}

TEST_F(mtdparts_test, a_size_is_set_in_quotes) {
  EXPECT_TRUE(ubi_set_mtd_size_to_env("ubi0", 81920));
  EXPECT_EQ(root.shell_lines(),
            lines({"/usr/sbin/fw_setenv mtdparts \"atmel_nand:81920k(ubi0),-(user)\" > /dev/null 2>&1"}));
  EXPECT_EQ(root.env()["mtdparts"], "atmel_nand:81920k(ubi0),-(user)");
  uint32_t kib = 0;
  EXPECT_TRUE(ubi_get_mtd_size_from_env("ubi0", &kib));
  EXPECT_EQ(kib, 81920U);
  EXPECT_TRUE(ubi_set_mtd_size_to_env("ubi0", 4294967295));
  EXPECT_EQ(root.env()["mtdparts"], "atmel_nand:4294967295k(ubi0),-(user)");
}

TEST_F(mtdparts_test, size_zero_clears_the_variable) {
  root.set_env("mtdparts", "atmel_nand:81920k(ubi0),-(user)");
  EXPECT_TRUE(ubi_set_mtd_size_to_env("ubi0", 0));
  EXPECT_EQ(root.shell_lines(), lines({"/usr/sbin/fw_setenv mtdparts  > /dev/null 2>&1"}));
  EXPECT_FALSE(root.env().contains("mtdparts"));
}

TEST_F(mtdparts_test, setting_and_clearing_are_told_at_verbosity_six) {
  log_level = 6;
  EXPECT_TRUE(ubi_set_mtd_size_to_env("ubi0", 5));
  EXPECT_TRUE(
      root.printed().starts_with("VERBOSE: ubi_set_mtd_size_to_env: Setting "
                                 "mtdparts=atmel_nand:5k(ubi0),-(user) in the boot environment\n"));
  EXPECT_TRUE(ubi_set_mtd_size_to_env("ubi0", 0));
  EXPECT_TRUE(root.printed().starts_with(
      "VERBOSE: ubi_set_mtd_size_to_env: Clearing mtdparts in the boot environment\n"));
  log_level = 7;
  EXPECT_TRUE(ubi_set_mtd_size_to_env("ubi0", 0));
  EXPECT_TRUE(root.printed().starts_with("TRACE: ubi_set_mtd_size_to_env:\n"));
}

TEST_F(mtdparts_test, a_tool_that_fails_is_reported_for_each) {
  root.answer("fw_setenv", {.status = 1});
  EXPECT_FALSE(ubi_set_mtd_size_to_env("ubi0", 5));
  EXPECT_TRUE(root.printed().ends_with(
      "\nERROR: Failed to set mtdparts=atmel_nand:5k(ubi0),-(user) in the boot environment\n"));
  EXPECT_FALSE(ubi_set_mtd_size_to_env("ubi0", 0));
  EXPECT_TRUE(root.printed().ends_with("\nERROR: Failed to clear mtdparts in the boot environment\n"));
}

}  // namespace
