// The end of an installation: what the boot loader is told, in which order.
#include "image/installation.h"

#include "loader_test.h"

namespace {

class installation_test : public loader_test {};

TEST_F(installation_test, a_root_file_system_without_a_kernel_sets_the_size_to_zero) {
  installation state = {.bank = mtd_bank_1, .mask = 0};
  installation_count_part(state, 12, 0);
  EXPECT_TRUE(installation_finish(state));
  EXPECT_EQ(root.env()["kernel_size_1"], "0");
  EXPECT_EQ(root.env()["bootbank"], "1");
}

TEST_F(installation_test, only_kernels_and_root_file_systems_switch_the_bank) {
  for (uint32_t type = 0; type <= 15; type++) {
    installation state = {.bank = mtd_bank_2, .mask = 0};
    installation_count_part(state, type, 0);
    EXPECT_EQ(state.written, 1);
    EXPECT_EQ(state.switches_bank, type == 4 || type == 5 || type == 10 || type == 12 || type == 13) << type;
  }
}

TEST_F(installation_test, other_parts_leave_the_environment_alone) {
  installation state = {.bank = mtd_bank_2, .mask = 0};
  installation_count_part(state, 2, 0);
  installation_count_part(state, 8, 0);
  EXPECT_TRUE(installation_finish(state));
  EXPECT_EQ(root.shell_lines(), lines());
}

TEST_F(installation_test, counts_and_settings_are_told) {
  const installation state = {.bank = mtd_bank_single,
                              .mask = 0,
                              .written = 3,
                              .skipped = 1,
                              .kernel_length = 16,
                              .switches_bank = true};
  log_level = 4;
  EXPECT_TRUE(installation_finish(state));
  EXPECT_EQ(root.printed(), "INFO: Wrote 3 image parts, skipped 1\n");
  log_level = 5;
  EXPECT_TRUE(installation_finish(state));
  EXPECT_EQ(root.printed(),
            "INFO: Wrote 3 image parts, skipped 1\n"
            "PROGRESS: Setting 'kernel_size_single=10' in the boot environment\n"
            "PROGRESS: Setting 'bootbank=single' in the boot environment\n");
}

}  // namespace
