// The partition table against the board's flash map, the names of its values, and the look-ups.
#include "mtd/partition_table.h"

#include "loader_test.h"

namespace {

class partition_table_test : public loader_test {};

struct expected_row {
  const char* dev_name;
  const char* part_name;
  int size;
  const char* type;
  const char* format;
  const char* image;
  const char* bank;
  int protect, clean, t;
};

constexpr expected_row flash_map[] = {
    {"/dev/mtd0", "bootstrap", -1, "serial", "firmware", "bootstrap", "none", 1, 0, 0},
    {"/dev/mtd1", "prod_config", -1, "serial", "tlv", "product config", "none", 1, 0, 1},
    {"/dev/mtd2", "bootloader", -1, "serial", "u-boot rom", "bootloader", "none", 1, 0, 1},
    {"/dev/mtd3", "bootenv_1", -1, "serial", "u-boot env", "boot env", "none", 1, 0, 1},
    {"/dev/mtd4", "bootenv_2", -1, "serial", "u-boot env", "boot env", "none", 1, 0, 1},
    {"/dev/mtd5", "kernel_1", -1, "serial", "uImage", "kernel", "1", 0, 0, 0},
    {"/dev/mtd6", "kernel_2", -1, "serial", "uImage", "kernel", "2", 0, 0, 0},
    {"/dev/mtd7", "kernel_single", -1, "serial", "uImage", "kernel", "single", 0, 1, 1},
    {"/dev/mtd8", "config_loader", -1, "serial", "uImage", "config loader", "none", 0, 0, 1},
    {"/dev/mtd9", "param_space", -1, "serial", "raw", "other", "none", 0, 1, 1},
    {"/dev/mtd10", "ubi0", -1, "nand", "ubi", "ubi0", "none", 0, 1, 1},
    {"/dev/ubi0_0", "rootfs_1", 25, "ubi0", "ubifs", "rootfs", "1", 0, 0, 0},
    {"/dev/ubi0_1", "rootfs_2", 25, "ubi0", "ubifs", "rootfs", "2", 0, 0, 0},
    {"/dev/ubi0_2", "rootfs_single", 50, "ubi0", "ubifs", "rootfs", "single", 0, 0, 0},
    {"/dev/ubi0_3", "vexo_private", 2, "ubi0", "ubifs", "privatefs", "none", 0, 0, 0},
    {"/dev/ubi0_4", "vexo_user", 0, "ubi0", "ubifs", "userfs", "none", 0, 0, 0},
};

template <size_t Size>
lines texts(const char* const (&names)[Size]) {
  return {names, names + Size};
}

TEST_F(partition_table_test, the_rows_are_those_of_the_board) {
  ASSERT_EQ(mtd_config_table_size(), static_cast<int>(std::size(flash_map)));
  for (size_t i = 0; i < std::size(flash_map); i++) {
    const expected_row& wanted = flash_map[i];
    const mtd_partition& row = mtd_config_table[i];
    SCOPED_TRACE(wanted.part_name);
    EXPECT_STREQ(row.dev_name, wanted.dev_name);
    EXPECT_STREQ(row.part_name, wanted.part_name);
    EXPECT_EQ(row.volume_size, wanted.size);
    EXPECT_STREQ(mtd_type_string[row.type], wanted.type);
    EXPECT_STREQ(mtd_format_string[row.format], wanted.format);
    EXPECT_STREQ(mtd_image_string[row.image], wanted.image);
    EXPECT_STREQ(mtd_bank_string[row.bank], wanted.bank);
    EXPECT_EQ(row.protect, wanted.protect);
    EXPECT_EQ(row.clean, wanted.clean);
    EXPECT_EQ(row.t, wanted.t);
  }
}

TEST_F(partition_table_test, values_have_their_numbers_and_names) {
  EXPECT_EQ(texts(mtd_type_string), lines({"serial", "nand", "mmc", "any", "ubi0", "mmc0"}));
  EXPECT_EQ(texts(mtd_format_string),
            lines({"firmware", "u-boot rom", "tlv", "u-boot env", "uImage", "jffs2", "raw", "ubi", "ubifs",
                   "msdos", "pri_ext2", "log_ext2", "extended"}));
  EXPECT_EQ(texts(mtd_image_string), lines({"bootstrap", "product config", "bootloader", "boot env", "kernel",
                                            "rootfs", "filesystem", "config loader", "other", "reserved",
                                            "kernel/rootfs", "ubi0", "privatefs", "userfs", "mmc0"}));
  EXPECT_EQ(texts(mtd_bank_string), lines({"none", "1", "2", "single", "any"}));
  EXPECT_EQ(texts(mtd_bank_string_short), lines({"-", "1", "2", "S", "?"}));
}

TEST_F(partition_table_test, a_bank_is_named_by_its_exact_word_and_a_wildcard_by_none) {
  EXPECT_EQ(mtd_bank_from_word("1"), mtd_bank_1);
  EXPECT_EQ(mtd_bank_from_word("2"), mtd_bank_2);
  EXPECT_EQ(mtd_bank_from_word("single"), mtd_bank_single);
  for (const char* word : {"", "none", "any", "0", "3", "1 ", "Single", "sing"})
    EXPECT_EQ(mtd_bank_from_word(word), mtd_bank_none) << word;
}

// ---------------------------------------------------------------------------------------------- look-ups

lines by_type(int number) {
  const auto type = static_cast<mtd_types>(number);
  lines names;
  for (const mtd_partition* row = nullptr; (row = mtd_get_by_type(row, type)) != nullptr;)
    names.push_back(row->part_name);
  return names;
}

lines by_image_and_bank(int image_number, int bank_number) {
  const auto image = static_cast<mtd_images>(image_number);
  const auto bank = static_cast<mtd_banks>(bank_number);
  lines names;
  for (const mtd_partition* row = nullptr; (row = mtd_get_by_image_and_bank(row, image, bank)) != nullptr;)
    names.push_back(row->part_name);
  return names;
}

TEST_F(partition_table_test, by_type_walks_the_rows_of_a_type_in_order) {
  EXPECT_EQ(by_type(0), lines({"bootstrap", "prod_config", "bootloader", "bootenv_1", "bootenv_2", "kernel_1",
                               "kernel_2", "kernel_single", "config_loader", "param_space"}));
  EXPECT_EQ(by_type(1), lines({"ubi0"}));
  EXPECT_EQ(by_type(4), lines({"rootfs_1", "rootfs_2", "rootfs_single", "vexo_private", "vexo_user"}));
}

TEST_F(partition_table_test, by_type_any_walks_every_row) {
  lines all;
  for (const expected_row& row : flash_map)
    all.push_back(row.part_name);
  EXPECT_EQ(by_type(3), all);
}

TEST_F(partition_table_test, types_that_no_row_has_find_nothing) {
  for (const int type : {2, 5, 6, -1}) {
    EXPECT_EQ(by_type(type), lines()) << type;
  }
}

TEST_F(partition_table_test, by_image_and_bank_finds_exactly_that_kind_and_bank) {
  EXPECT_EQ(by_image_and_bank(0, 0), lines({"bootstrap"}));
  EXPECT_EQ(by_image_and_bank(3, 0), lines({"bootenv_1", "bootenv_2"}));
  EXPECT_EQ(by_image_and_bank(4, 1), lines({"kernel_1"}));
  EXPECT_EQ(by_image_and_bank(4, 2), lines({"kernel_2"}));
  EXPECT_EQ(by_image_and_bank(4, 3), lines({"kernel_single"}));
  EXPECT_EQ(by_image_and_bank(5, 3), lines({"rootfs_single"}));
  EXPECT_EQ(by_image_and_bank(12, 0), lines({"vexo_private"}));
  EXPECT_EQ(by_image_and_bank(13, 0), lines({"vexo_user"}));
  EXPECT_EQ(by_image_and_bank(4, 0), lines());
  EXPECT_EQ(by_image_and_bank(0, 1), lines());
  EXPECT_EQ(by_image_and_bank(14, 4), lines());
  EXPECT_EQ(by_image_and_bank(-1, 4), lines());
}

TEST_F(partition_table_test, wildcards_of_kind_and_bank) {
  EXPECT_EQ(by_image_and_bank(10, 4),
            lines({"kernel_1", "kernel_2", "kernel_single", "rootfs_1", "rootfs_2", "rootfs_single"}));
  EXPECT_EQ(by_image_and_bank(10, 2), lines({"kernel_2", "rootfs_2"}));
  EXPECT_EQ(by_image_and_bank(5, 4), lines({"rootfs_1", "rootfs_2", "rootfs_single"}));
  EXPECT_EQ(by_image_and_bank(10, 0), lines());
}

TEST_F(partition_table_test, nothing_follows_the_last_row) {
  EXPECT_EQ(mtd_get_by_type(&mtd_config_table[15], mtd_type_any), nullptr);
  EXPECT_EQ(mtd_get_by_image_and_bank(&mtd_config_table[15], mtd_image_userfs, mtd_bank_any), nullptr);
}

TEST_F(partition_table_test, by_name_and_by_node_want_the_whole_text) {
  EXPECT_EQ(mtd_get_by_name("ubi0"), &mtd_config_table[10]);
  EXPECT_EQ(mtd_get_by_name("kernel"), nullptr);
  EXPECT_EQ(mtd_get_by_name(""), nullptr);
  EXPECT_EQ(mtd_get_by_dev_name("/dev/mtd1"), &mtd_config_table[1]);
  EXPECT_EQ(mtd_get_by_dev_name("/dev/mtd"), nullptr);
}

TEST_F(partition_table_test, short_nodes_have_no_directory) {
  EXPECT_STREQ(mtd_short_node(mtd_config_table[10]), "mtd10");
  EXPECT_STREQ(mtd_short_node(mtd_config_table[15]), "ubi0_4");
  char elsewhere[] = "/tmp/mtd1";
  mtd_config_table[0].dev_name = elsewhere;
  EXPECT_STREQ(mtd_short_node(mtd_config_table[0]), "/tmp/mtd1");
}

}  // namespace
