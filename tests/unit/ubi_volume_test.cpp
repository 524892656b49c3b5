// UBI volumes: command lines to the byte at every verbosity, sizes from sysfs, every refusal.
#include "ubi/volume.h"

#include "ubi/device.h"

#include "ubi_test.h"

namespace {

class ubi_volume_test : public ubi_test {};

TEST_F(ubi_volume_test, a_name_without_a_number_runs_nothing) {
  for (const char* name : {"ubiX", "", "mtd0"}) {
    EXPECT_EQ(ubi_attach(name), 0);
    EXPECT_EQ(root.printed(), "ERROR: Invalid ubi device=" + std::string(name) + "\n");
  }
  EXPECT_EQ(root.shell_lines(), lines());
}

TEST_F(ubi_volume_test, a_device_that_no_row_carries_only_makes_nodes) {
  EXPECT_EQ(ubi_attach("ubi7"), 1);
  EXPECT_EQ(root.shell_lines(), lines({nodes}));
}

TEST_F(ubi_volume_test, detaching_fails_with_its_tool_and_says_nothing) {
  EXPECT_EQ(ubi_detach("ubi0"), 1);
  EXPECT_EQ(root.shell_lines(), lines({detach}));
  root.answer("ubidetach", {.status = 1});
  EXPECT_EQ(ubi_detach("ubi0"), 0);
  EXPECT_EQ(root.printed(), "");
}

TEST_F(ubi_volume_test, tools_are_quiet_up_to_progress_only) {
  for (const auto& [level, suffix] : {std::pair{5, quiet}, std::pair{6, std::string()}}) {
    log_level = static_cast<uint32_t>(level);
    root.forget();
    ubi_attach("ubi0");
    ubi_mkvol("/dev/ubi0_3", 2621, "vexo_private");
    ubi_rsvol("/dev/ubi0_1", 7);
    ubi_detach("ubi0");
    EXPECT_EQ(
        root.shell_lines(),
        lines({"/usr/sbin/ubiattach /dev/ubi_ctrl -d 0 -p /dev/mtd10" + suffix, "/sbin/mdev -s" + suffix,
               "/usr/sbin/ubimkvol /dev/ubi0 -n 3 -s 2621KiB -N vexo_private" + suffix,
               "/sbin/mdev -s" + suffix, "/usr/sbin/ubirsvol /dev/ubi0 -n 1 -S 7" + suffix,
               "/usr/sbin/ubidetach /dev/ubi_ctrl -p /dev/mtd10" + suffix}));
  }
}

TEST_F(ubi_volume_test, a_volume_of_no_size_gets_all_that_is_left) {
  for (const int size : {0, -5}) {
    root.forget();
    EXPECT_EQ(ubi_mkvol("/dev/ubi0_4", size, "vexo_user"), 1);
    EXPECT_EQ(root.shell_lines(),
              lines({"/usr/sbin/ubimkvol /dev/ubi0 -n 4 -m -N vexo_user" + quiet, nodes}));
  }
}

TEST_F(ubi_volume_test, a_volume_of_one_kib_is_made_by_size) {
  EXPECT_EQ(ubi_mkvol("/dev/ubi0_2", 1, "rootfs_single"), 1);
  EXPECT_EQ(root.shell_lines().front(), "/usr/sbin/ubimkvol /dev/ubi0 -n 2 -s 1KiB -N rootfs_single" + quiet);
}

TEST_F(ubi_volume_test, a_volume_that_could_not_be_made_gets_no_node) {
  root.answer("ubimkvol", {.status = 1});
  EXPECT_EQ(ubi_mkvol("/dev/ubi0_4", 1, "vexo_user"), 0);
  EXPECT_EQ(root.shell_lines().size(), 1u);
  EXPECT_EQ(root.printed(), "");
}

TEST_F(ubi_volume_test, paths_need_both_numbers) {
  EXPECT_EQ(ubi_mkvol("/dev/ubi0", 1, "x"), 0);
  EXPECT_EQ(root.printed(), "ERROR: Invalid device=/dev/ubi0\n");
  EXPECT_EQ(ubi_rsvol("/dev/mtd10", 1), 0);
  EXPECT_EQ(root.printed(), "ERROR: Invalid dev_name=/dev/mtd10\n");
  EXPECT_EQ(root.shell_lines(), lines());
}

TEST_F(ubi_volume_test, resizing_to_nothing_is_refused) {
  for (const int lebs : {0, -1}) {
    EXPECT_EQ(ubi_rsvol("/dev/ubi0_1", lebs), 0);
    EXPECT_EQ(root.printed(), "ERROR: Cannot resize /dev/ubi0_1 to " + std::to_string(lebs) + " LEBs\n");
  }
  EXPECT_EQ(root.shell_lines(), lines());
}

TEST_F(ubi_volume_test, a_failed_resize_says_nothing) {
  root.answer("ubirsvol", {.status = 3});
  EXPECT_EQ(ubi_rsvol("/dev/ubi0_1", 5), 0);
  EXPECT_EQ(root.printed(), "");
}

TEST_F(ubi_volume_test, an_erase_without_attach_detaches_all_the_same) {
  root.answer("ubiattach", {.status = 1});
  EXPECT_EQ(ubi_erase_volume("/dev/ubi0_1", "ubi0"), 0);
  EXPECT_EQ(root.shell_lines(), lines({attach, nodes, detach}));
}

TEST_F(ubi_volume_test, sizes_are_read_below_ubi0_whatever_the_path_says) {
  set_attribute("ubi1_2/reserved_ebs", "42\n");
  set_attribute("avail_eraseblocks", "7\n");
  set_attribute("ubi0_1/data_bytes", "5368709120\n");
  EXPECT_EQ(ubi_get_volume_size_in_lebs("/dev/ubi1_2"), 42);
  EXPECT_EQ(ubi_get_free_num_lebs(), 7);
  EXPECT_EQ(ubi_get_volume_size_in_bytes("/dev/ubi0_1"), 5368709120);
}

TEST_F(ubi_volume_test, sizes_that_sysfs_does_not_tell_are_minus_one) {
  set_attribute("avail_eraseblocks", "");
  EXPECT_EQ(ubi_get_free_num_lebs(), -1);
  EXPECT_EQ(ubi_get_volume_size_in_lebs("/dev/ubi0_0"), -1);
  EXPECT_EQ(ubi_get_volume_size_in_lebs("ubi"), -1);
  EXPECT_EQ(ubi_get_volume_size_in_bytes("/dev/ubi0_0"), -1);
}

TEST_F(ubi_volume_test, rubbish_in_sysfs_reads_as_zero) {
  set_attribute("avail_eraseblocks", "none\n");
  EXPECT_EQ(ubi_get_free_num_lebs(), 0);
}

TEST_F(ubi_volume_test, reading_sizes_is_traced_by_name) {
  log_level = 7;
  ubi_get_volume_size_in_lebs("/dev/ubi0_0");
  EXPECT_EQ(root.printed(),
            "TRACE: ubi_get_volume_size_in_lebs: dev_name=/dev/ubi0_0\n"
            "VERBOSE: ubi_get_volume_size_in_lebs: fopen(/sys/class/ubi/ubi0/ubi0_0/reserved_ebs)\n");
  ubi_get_free_num_lebs();
  EXPECT_EQ(root.printed(),
            "TRACE: ubi_get_free_num_lebs:\n"
            "VERBOSE: ubi_get_free_num_lebs: fopen(/sys/class/ubi/ubi0/avail_eraseblocks)\n");
}

TEST_F(ubi_volume_test, every_operation_traces_its_arguments_first) {
  struct {
    const char* first;
    void (*operation)();
  } constexpr cases[] = {
      {"ubi_attach: ubi_dev_name=ubi0", [] { ubi_attach("ubi0"); }},
      {"ubi_detach: ubi_dev_name=ubi0", [] { ubi_detach("ubi0"); }},
      {"ubi_mkvol: dev_name=/dev/ubi0_4 size_kib=-1 part_name=vexo_user",
       [] { ubi_mkvol("/dev/ubi0_4", -1, "vexo_user"); }},
      {"ubi_rsvol: dev_name=/dev/ubi0_1 num_lebs=7", [] { ubi_rsvol("/dev/ubi0_1", 7); }},
      {"ubi_erase_volume: mtd_dev_name=/dev/ubi0_1 ubi_dev_name=ubi0",
       [] { ubi_erase_volume("/dev/ubi0_1", "ubi0"); }},
      {"ubi_get_volume_size_in_bytes: dev_name=/dev/ubi0_1",
       [] { ubi_get_volume_size_in_bytes("/dev/ubi0_1"); }},
      {"ubi_get_root_from_dev_name:",
       [] {
         char device[16];
         ubi_get_root_from_dev_name("/dev/ubi0_1", device, sizeof device);
       }},
  };
  for (const auto& each : cases) {
    log_level = 7;
    each.operation();
    EXPECT_TRUE(root.printed().starts_with("TRACE: " + std::string(each.first) + "\n")) << each.first;
    log_level = 6;
    each.operation();
    EXPECT_EQ(root.printed().find(each.first), std::string::npos) << each.first;
  }
}

TEST_F(ubi_volume_test, the_device_of_a_volume) {
  char device[16];
  EXPECT_EQ(ubi_get_root_from_dev_name("/dev/ubi3_1", device, sizeof device), 1);
  EXPECT_STREQ(device, "/dev/ubi3");
  EXPECT_EQ(ubi_get_root_from_dev_name("/dev/ubi3", device, sizeof device), 0);
}

}  // namespace
