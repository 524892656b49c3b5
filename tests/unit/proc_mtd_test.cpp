// /proc/mtd of every shape: numbers, sizes, and the nodes of the table.
#include "mtd/proc_mtd.h"

#include "loader_test.h"

namespace {

constexpr char heading[] = "dev:    size   erasesize  name\n";

class proc_mtd_test : public loader_test {
 protected:
  void list(const std::string& rows) const { root.write_file("/proc/mtd", heading + rows); }

  // What is known about a name.
  struct knowledge {
    int index;
    uint64_t size;
    uint32_t erase_size;
    bool operator==(const knowledge&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const knowledge& k) {
      return out << k.index << " 0x" << std::hex << k.size << " 0x" << k.erase_size << std::dec;
    }
  };
  static knowledge about(const char* name) {
    return {mtd_name_to_index(name), mtd_name_to_size(name), mtd_name_to_erasesize(name)};
  }
  static constexpr knowledge nothing = {-1, 0, 0};
};

TEST_F(proc_mtd_test, a_line_gives_number_size_and_erase_size) {
  EXPECT_EQ(about("bootstrap"), (knowledge{0, 0x20000, 0x10000}));
  EXPECT_EQ(about("kernel_2"), (knowledge{6, 0x400000, 0x10000}));
  EXPECT_EQ(about("ubi0"), (knowledge{10, 0x8000000, 0x20000}));
  EXPECT_EQ(root.printed(), "");
}

TEST_F(proc_mtd_test, a_missing_list_knows_nothing) {
  root.remove("/proc/mtd");
  EXPECT_EQ(about("ubi0"), nothing);
  EXPECT_EQ(root.printed(), "");
}

TEST_F(proc_mtd_test, an_empty_list_or_a_heading_alone_knows_nothing) {
  root.write_file("/proc/mtd", "");
  EXPECT_EQ(about("ubi0"), nothing);
  list("");
  EXPECT_EQ(about("ubi0"), nothing);
  EXPECT_EQ(about("size"), nothing) << "the heading is no partition";
  EXPECT_EQ(about("dev"), nothing);
}

TEST_F(proc_mtd_test, a_name_matches_inside_longer_names_and_the_first_line_wins) {
  list("mtd0: 00001000 00000100 \"old_ubi0_copy\"\nmtd1: 00002000 00000200 \"ubi0\"\n");
  EXPECT_EQ(about("ubi0"), (knowledge{0, 0x1000, 0x100}));
  list("mtd4: 00001000 00000100 \"user_data\"\nmtd3: 00002000 00000200 \"user\"\n");
  EXPECT_EQ(about("user"), (knowledge{4, 0x1000, 0x100})) << "in the kernel's order, not by number";
}

TEST_F(proc_mtd_test, the_rest_of_the_line_can_match_too) {
  list("mtd7: 00abc000 00000100 \"first\"\n");
  EXPECT_EQ(mtd_name_to_index("abc"), 7);
  EXPECT_EQ(mtd_name_to_index("mtd7"), 7);
}

TEST_F(proc_mtd_test, matching_lines_must_begin_with_mtd) {
  list(
      "xmtd1: 00001000 00000100 \"ubi0\"\n mtd2: 00001000 00000100 \"ubi0\"\nmtd3: 00002000 00000200 "
      "\"ubi0\"\n");
  EXPECT_EQ(about("ubi0"), (knowledge{3, 0x2000, 0x200}));
}

TEST_F(proc_mtd_test, case_matters) {
  EXPECT_EQ(about("UBI0"), nothing);
}

TEST_F(proc_mtd_test, a_partition_without_a_name_is_found_as_null) {
  list("mtd0: 00001000 00000100 \"bootstrap\"\nmtd1: 04000000 00020000 \"<NULL>\"\n");
  EXPECT_EQ(about("<NULL>"), (knowledge{1, 0x4000000, 0x20000}));
}

TEST_F(proc_mtd_test, sizes_have_64_bits_and_erase_sizes_32) {
  list(
      "mtd0: ffffffff ffffffff \"a\"\nmtd1: 100000000 80000000 \"b\"\nmtd123: fedcba9876543210 00020000 "
      "\"c\"\n");
  EXPECT_EQ(about("\"a\""), (knowledge{0, 0xFFFFFFFF, 0xFFFFFFFF}));
  EXPECT_EQ(about("\"b\""), (knowledge{1, 0x100000000, 0x80000000}));
  EXPECT_EQ(about("\"c\""), (knowledge{123, 0xFEDCBA9876543210, 0x20000}));
}

TEST_F(proc_mtd_test, a_name_within_the_first_127_bytes_of_a_long_line_is_found) {
  list("mtd3: 00001000 00000100 \"ubi0" + std::string(300, 'x') + "\"\nmtd4: 00002000 00000200 \"next\"\n");
  EXPECT_EQ(about("ubi0"), (knowledge{3, 0x1000, 0x100}));
  EXPECT_EQ(about("next"), (knowledge{4, 0x2000, 0x200}));
}

TEST_F(proc_mtd_test, a_name_behind_them_is_not) {
  list("mtd3: 00001000 00000100 \"" + std::string(150, 'x') + "ubi0\"\n");
  EXPECT_EQ(about("ubi0"), nothing);
}

TEST_F(proc_mtd_test, lines_cut_short_have_no_sizes) {
  list("mtd3 ubi0");
  EXPECT_EQ(mtd_name_to_index("ubi0"), 3);
  EXPECT_EQ(mtd_name_to_size("ubi0"), 0U) << "there is no colon";
  list("mtd3ubi0:");
  EXPECT_EQ(about("ubi0"), (knowledge{3, 0, 0}));
  list("mtd3: ubi0");
  EXPECT_EQ(mtd_name_to_size("ubi0"), 0U);
  EXPECT_EQ(mtd_name_to_erasesize("ubi0"), 0U);
}

TEST_F(proc_mtd_test, a_last_line_without_its_end_counts) {
  list("mtd3: 00001000 00000100 \"ubi0\"");
  EXPECT_EQ(about("ubi0"), (knowledge{3, 0x1000, 0x100}));
}

TEST_F(proc_mtd_test, sizes_are_traced_and_numbers_are_not) {
  log_level = 7;
  about("ubi0");
  EXPECT_EQ(root.printed(), "TRACE: mtd_name_to_size: name=ubi0\nTRACE: mtd_name_to_erasesize: name=ubi0\n");
}

// ---------------------------------------------------------------------------------------------- device names

lines nodes() {
  lines all;
  for (const mtd_partition& row : mtd_config_table)
    all.push_back(row.dev_name);
  return all;
}

TEST_F(proc_mtd_test, rows_that_the_kernel_lists_get_its_numbers_and_the_others_keep_their_nodes) {
  list(
      "mtd0: 00001000 00000100 \"ubi0\"\nmtd12: 00001000 00000100 \"kernel_2\"\n"
      "mtd345: 00001000 00000100 \"bootstrap\"\n");
  lines expected = nodes();
  expected[0] = "/dev/mtd345";
  expected[6] = "/dev/mtd12";
  expected[10] = "/dev/mtd0";
  log_level = 6;
  mtd_init_dev_names();
  EXPECT_EQ(nodes(), expected);
  EXPECT_EQ(root.printed(),
            "VERBOSE: mtd_init_dev_names: bootstrap=/dev/mtd345\n"
            "VERBOSE: mtd_init_dev_names: kernel_2=/dev/mtd12\n"
            "VERBOSE: mtd_init_dev_names: ubi0=/dev/mtd0\n");
}

TEST_F(proc_mtd_test, a_missing_list_leaves_all_nodes) {
  const lines before = nodes();
  root.remove("/proc/mtd");
  log_level = 6;
  mtd_init_dev_names();
  EXPECT_EQ(nodes(), before);
  EXPECT_EQ(root.printed(), "");
}

TEST_F(proc_mtd_test, names_handed_out_before_stay_valid) {
  mtd_init_dev_names();
  const char* held = mtd_config_table[5].dev_name;
  list("mtd9: 00001000 00000100 \"kernel_1\"\n");
  mtd_init_dev_names();
  EXPECT_STREQ(held, "/dev/mtd5");
  EXPECT_STREQ(mtd_config_table[5].dev_name, "/dev/mtd9");
}

TEST_F(proc_mtd_test, names_need_no_memory) {
  list("mtd9: 00001000 00000100 \"kernel_1\"\nmtd8: 00001000 00000100 \"kernel_2\"\n");
  root.fail_call("malloc", {.match = "24", .error = ENOMEM, .result = 0, .optional = true});
  root.fail_call("malloc", {.match = "16", .error = ENOMEM, .result = 0, .optional = true});
  mtd_init_dev_names();
  EXPECT_STREQ(mtd_config_table[5].dev_name, "/dev/mtd9");
  EXPECT_STREQ(mtd_config_table[6].dev_name, "/dev/mtd8");
  EXPECT_EQ(root.printed(), "");
}

}  // namespace
