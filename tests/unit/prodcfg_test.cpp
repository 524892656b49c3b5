// The product configuration record: what is accepted, skipped and refused, and that nothing in the partition
// can harm the shell.
#include "prodcfg/record.h"

#include "model_test.h"

namespace {

const std::string mac_a = "\x11\x12\x13\x14\x15\x16";
const std::string mac_b = "\x21\x22\x23\x24\x25\x26";

class prodcfg_test : public model_test {
 protected:
  // Reads the partition with this at its start.
  void init_with(const std::string& bytes) {
    const int fd = open("/dev/mtd1", O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(pwrite(fd, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    close(fd);
    prodcfg_init();
  }

  static std::string field(const void* at, size_t size) { return {static_cast<const char*>(at), size}; }

  static void expect_nothing_kept() {
    product_config empty = {};
    empty.value_length = empty.hwcfg_length = empty.product_id_length = 255;
    EXPECT_EQ(g_product_config_avail, 0);
    EXPECT_EQ(memcmp(&g_product_config, &empty, offsetof(product_config, product_id_length) + 1), 0);
  }
};

template <size_t Size>
std::string padded(const char (&text)[Size], size_t size) {
  std::string bytes(text, Size - 1);
  bytes.resize(size, '\0');
  return bytes;
}

// ------------------------------------------------------------------------------------------------- reading

TEST_F(prodcfg_test, flash_that_cannot_be_read_whole) {
  struct {
    const char* call;
    call_failure failure;
    const char* end;
  } const cases[] = {
      {"open", {.match = "/dev/mtd1", .error = EBUSY}, "open(/dev/mtd1) error(Device or resource busy)\n"},
      {"read", {.match = "/dev/mtd1", .error = EIO}, "read(1024) error(Input/output error)\n"},
      {"read",
       {.match = "/dev/mtd1", .error = 0, .result = 100},
       "only 100/1024 bytes read, error(Success)\n"},
  };
  for (const auto& [call, failure, end] : cases) {
    root.drop_rules();
    root.fail_call(call, failure);
    prodcfg_init();
    EXPECT_EQ(root.printed(), std::string("ERROR: prodcfg_read: ") + end);
    expect_nothing_kept();
  }
}

// ---------------------------------------------------------------------------------------------- acceptance

TEST_F(prodcfg_test, every_item_finds_its_field) {
  std::string items;
  for (const int type : {1, 2, 7, 8, 9, 10})
    items += item(type, std::string(6, static_cast<char>('a' + type)));
  items += item(3, "text") + item(4, "value") + item(5, "sp2") + item(6, "Device v3.1") + item(11, "P2AB");
  const std::string record = record_of(items);
  init_with(record);
  EXPECT_EQ(g_product_config_avail, 1);
  const int types[] = {1, 2, 7, 8, 9, 10};
  for (int i = 0; i < 6; i++)
    EXPECT_EQ(field(g_product_config.mac[i], 6), std::string(6, static_cast<char>('a' + types[i]))) << i;
  EXPECT_EQ(field(g_product_config.text, 64), padded("text", 64));
  EXPECT_EQ(field(g_product_config.value, 64), padded("value", 64));
  EXPECT_EQ(g_product_config.value_length, 5);
  EXPECT_EQ(field(g_product_config.hwcfg, 64), padded("sp2", 64));
  EXPECT_EQ(g_product_config.hwcfg_length, 3);
  EXPECT_EQ(field(g_product_config.description, 64), padded("Device v3.1", 64));
  EXPECT_EQ(field(g_product_config.product_id, 4), "P2AB");
  EXPECT_EQ(g_product_config.product_id_length, 4);
  EXPECT_EQ(little_endian(g_product_config.checksum), record.substr(0, 2));
  EXPECT_EQ(g_product_config.total_length, record.size());
  EXPECT_EQ(root.printed(), "");
}

TEST_F(prodcfg_test, record_in_memory_is_laid_out_as_the_factory_tools_have_it) {
  init_with(record_of(item(6, std::string(64, 'd')) + item(1, mac_a) + item(3, std::string(63, 't')) +
                      item(4, std::string(64, 'v')) + item(5, std::string(64, 'h')) + item(11, "PROD")));
  EXPECT_EQ(field(&g_product_config, 228), std::string(64, 'd') + mac_a + std::string(30, '\0') +
                                               std::string(63, 't') + '\0' + std::string(64, 'v'));
  const std::string rest = field(reinterpret_cast<const char*>(&g_product_config) + 228, 75);
  EXPECT_EQ(rest.substr(0, 66), "\x40" + std::string(64, 'h') + "\x40");
  EXPECT_EQ(rest.substr(68), little_endian(g_product_config.total_length) + "PROD\x04");
}

TEST_F(prodcfg_test, header_alone_is_a_record) {
  init_with(record_of(""));
  EXPECT_EQ(g_product_config_avail, 1);
  EXPECT_EQ(g_product_config.total_length, 4);
  EXPECT_EQ(g_product_config.product_id_length, 255);
}

TEST_F(prodcfg_test, odd_length_counts_the_last_byte_alone) {
  init_with(record_of(item(11, "P20")) + "\xFF");
  EXPECT_EQ(g_product_config.total_length % 2, 0) << "an even one to begin with";
  EXPECT_EQ(g_product_config_avail, 1);
  init_with(record_of(item(11, "P2")) + "\xFF");
  EXPECT_EQ(g_product_config.total_length % 2, 1);
  EXPECT_EQ(g_product_config_avail, 1);
}

TEST_F(prodcfg_test, longest_record) {
  std::string items;
  while (items.size() < 1020 - 67)
    items += item(6, std::string(64, static_cast<char>('a' + items.size() % 26)));
  items += item(5, std::string(1020 - 3 - items.size(), 'h'));
  init_with(record_of(items));
  EXPECT_EQ(g_product_config_avail, 1);
  EXPECT_EQ(g_product_config.total_length, 1024);
}

TEST_F(prodcfg_test, one_or_two_bytes_at_the_end_are_no_item) {
  for (const char* rest : {"\x01", "\x01\x06"}) {
    init_with(record_of(item(11, "P2") + rest));
    EXPECT_EQ(g_product_config_avail, 1);
    EXPECT_EQ(g_product_config.product_id_length, 2);
  }
  EXPECT_EQ(root.printed(), "");
}

// ---------------------------------------------------------------------------------------------- items

struct length_limits {
  int type;
  size_t shortest;
  size_t longest;
};

TEST_F(prodcfg_test, lengths_of_every_item) {
  for (const length_limits& limits : {length_limits{1, 6, 6},
                                      {2, 6, 6},
                                      {3, 0, 63},
                                      {4, 0, 64},
                                      {5, 0, 64},
                                      {6, 0, 64},
                                      {7, 6, 6},
                                      {8, 6, 6},
                                      {9, 6, 6},
                                      {10, 6, 6},
                                      {11, 0, 4}}) {
    for (size_t length = 0; length <= 70; length++) {
      init_with(record_of(item(limits.type, std::string(length, 'x')) + item(2, mac_b)));
      EXPECT_EQ(g_product_config_avail, 1);
      EXPECT_EQ(field(g_product_config.mac[1], 6), mac_b) << "the rest is still parsed";
      const bool accepted = length >= limits.shortest && length <= limits.longest;
      char message[100];
      snprintf(message, sizeof message, "ERROR: tlv_parse_buffer: skipping invalid tlv type=%d length=%zu\n",
               limits.type, length);
      EXPECT_EQ(root.printed(), accepted ? "" : message) << limits.type << " " << length;
    }
  }
}

TEST_F(prodcfg_test, item_of_wrong_length_leaves_its_field_alone) {
  init_with(record_of(item(1, mac_a) + item(1, "12345") + item(11, "P200") + item(11, "P2000")));
  EXPECT_EQ(field(g_product_config.mac[0], 6), mac_a);
  EXPECT_EQ(field(g_product_config.product_id, 4), "P200");
  EXPECT_EQ(root.printed(),
            "ERROR: tlv_parse_buffer: skipping invalid tlv type=1 length=5\n"
            "ERROR: tlv_parse_buffer: skipping invalid tlv type=11 length=5\n");
}

TEST_F(prodcfg_test, later_item_of_a_type_replaces_the_earlier_whole) {
  init_with(record_of(item(11, "P200") + item(5, "sp4,dio2x1r") + item(1, mac_a) + item(11, "P1") +
                      item(5, "sp1") + item(1, mac_b)));
  EXPECT_EQ(field(g_product_config.product_id, 4), std::string("P1\0\0", 4));
  EXPECT_EQ(g_product_config.product_id_length, 2);
  EXPECT_EQ(field(g_product_config.hwcfg, 64), padded("sp1", 64));
  EXPECT_EQ(g_product_config.hwcfg_length, 3);
  EXPECT_EQ(field(g_product_config.mac[0], 6), mac_b);
}

TEST_F(prodcfg_test, unknown_types_are_skipped_with_an_info) {
  log_level = level_info;
  init_with(record_of(item(0, "abc") + item(12, "") + item(255, std::string(300, 'x')) + item(2, mac_b)));
  EXPECT_EQ(g_product_config_avail, 1);
  EXPECT_EQ(field(g_product_config.mac[1], 6), mac_b);
  EXPECT_EQ(root.printed(),
            "INFO: tlv_parse_buffer: skipping unrecognized tlv type=0 length=3\n"
            "INFO: tlv_parse_buffer: skipping unrecognized tlv type=12 length=0\n"
            "INFO: tlv_parse_buffer: skipping unrecognized tlv type=255 length=300\n");
}

TEST_F(prodcfg_test, absent_items_have_no_text) {
  prodcfg_reset();
  product_text text = "x";
  EXPECT_FALSE(prodcfg_get_hwcfg(text));
  EXPECT_STREQ(text, "");
  strcpy(text, "x");
  EXPECT_FALSE(prodcfg_get_product_id(text));
  EXPECT_STREQ(text, "");
}

TEST_F(prodcfg_test, verbose_tells_of_every_step) {
  log_level = level_verbose;
  init_with(record_of(item(11, "P2") + item(1, mac_a)));
  EXPECT_EQ(root.printed(),
            "VERBOSE: prodcfg_read: total_length=18\n"
            "VERBOSE: tlv_parse_buffer: found tlv type=11 length=2(+3)\n"
            "VERBOSE: tlv_parse_buffer: found tlv type=1 length=6(+3)\n");
}

TEST_F(prodcfg_test, trace_names_the_operations) {
  log_level = level_trace;
  init_with("");
  EXPECT_EQ(root.printed(),
            "TRACE: prodcfg_init:\nTRACE: prodcfg_reset:\nTRACE: prodcfg_read:\n"
            "INFO: prodcfg_read: invalid total length 0\nTRACE: prodcfg_reset:\n");
}

// ---------------------------------------------------------------------------------------------- refusals

// Items before the overrun do not survive it.
TEST_F(prodcfg_test, item_past_the_end_refuses_the_whole_record) {
  for (const unsigned length : {1U, 7U, 0x100U, 0x7FFFU, 0x8000U, 0xFFFDU, 0xFFFEU, 0xFFFFU}) {
    init_with(record_of(item(1, mac_a) + item(11, "P2") + "\x02" + little_endian(length)));
    EXPECT_EQ(root.printed(), "ERROR: tlv_parse_buffer: parse underrun\n") << length;
    expect_nothing_kept();
  }
}

TEST_F(prodcfg_test, item_up_to_the_end_is_whole_and_one_byte_more_is_not) {
  init_with(record_of(item(2, mac_b)));
  EXPECT_EQ(g_product_config_avail, 1);
  init_with(record_of("\x02" + little_endian(7) + mac_b) + "x");
  EXPECT_EQ(root.printed(), "ERROR: tlv_parse_buffer: parse underrun\n");
  expect_nothing_kept();
}

TEST_F(prodcfg_test, item_longer_than_the_buffer) {
  std::string record = std::string(2, '\0') + little_endian(1024) + "\x06" + little_endian(0xFFFF);
  record.resize(1024, '\0');
  init_with(sealed(record, 1024));
  EXPECT_EQ(root.printed(), "ERROR: tlv_parse_buffer: parse underrun\n");
  expect_nothing_kept();
}

TEST_F(prodcfg_test, every_total_length) {
  std::string record(1024, '\0');
  for (size_t i = 4; i + 3 <= record.size(); i += 3)
    record.replace(i, 3, "\x0C" + little_endian(0));  // items that say nothing
  for (unsigned total = 0; total <= 65535; total++) {
    record.replace(2, 2, little_endian(total));
    const bool valid = total >= 4 && total <= 1024;
    init_with(valid ? sealed(record, total) : record);
    ASSERT_EQ(g_product_config_avail, valid ? 1 : 0) << total;
    ASSERT_EQ(g_product_config.total_length, valid ? total : 0);
  }
  EXPECT_EQ(root.printed(), "");
  log_level = level_info;
  for (const unsigned total : {0U, 3U, 1025U, 0x7FFFU, 0x8000U, 65535U}) {
    record.replace(2, 2, little_endian(total));
    init_with(sealed(record, std::min<size_t>(total, 1024)));
    EXPECT_EQ(root.printed(), "INFO: prodcfg_read: invalid total length " + std::to_string(total) + "\n");
    expect_nothing_kept();
  }
}

TEST_F(prodcfg_test, lengths_out_of_range_are_no_error) {
  std::string record = std::string(2, '\0') + little_endian(3);
  init_with(sealed(record, 3));
  EXPECT_EQ(root.printed(), "");
  expect_nothing_kept();
}

TEST_F(prodcfg_test, checksum_mismatch) {
  log_level = level_info;
  std::string record = std::string("\x34\x12") + little_endian(9) + item(11, "P2");
  // 0x1234 + 0x0009 + 0x020b + 0x5000 + 0x32
  init_with(record);
  EXPECT_EQ(root.printed(), "INFO: prodcfg_read: checksum mismatch prog=0x1234 calc=0x647a\n");
  expect_nothing_kept();
}

TEST_F(prodcfg_test, every_flipped_bit_is_noticed) {
  const std::string record = record_of(item(11, "P200") + item(5, "sp4") + item(1, mac_a));
  for (size_t bit = 0; bit < 8 * record.size(); bit++) {
    std::string broken = record;
    broken[bit / 8] = static_cast<char>(broken[bit / 8] ^ (1 << (bit % 8)));
    init_with(broken);
    ASSERT_EQ(g_product_config_avail, 0) << bit;
  }
}

// Whatever an intact sum makes of noise, nothing breaks: the sanitizers watch this.
TEST_F(prodcfg_test, noise_with_a_good_checksum) {
  int accepted = 0;
  for (unsigned seed = 0; seed < 3000; seed++) {
    std::string record = noise(1024, seed);
    const unsigned total = 4 + seed % 200;
    record.replace(2, 2, little_endian(total));
    for (size_t i = 5; i < 100; i += 7)
      record.replace(i, 2, little_endian(static_cast<uint8_t>(record[i]) % 9));
    init_with(sealed(record, total));
    product_text text;
    prodcfg_get_hwcfg(text);
    prodcfg_get_product_id(text);
    accepted += g_product_config_avail;
  }
  EXPECT_GT(accepted, 20) << "else this tests nothing but refusals";
}

// ---------------------------------------------------------------------------------------------- flash

TEST_F(prodcfg_test, first_partition_of_the_kind_is_read_at_once) {
  root.trace("/dev/mtd");
  init_with(record_of(item(11, "P2")));
  lines reads;
  for (const device_event& event : root.events("read"))
    reads.push_back(event.text());
  EXPECT_EQ(reads, lines({"read /dev/mtd1 1024"}));
}

TEST_F(prodcfg_test, no_such_partition) {
  for (mtd_partition& row : mtd_config_table) {
    if (row.image == mtd_image_product_config) row.image = mtd_image_other;
  }
  prodcfg_init();
  EXPECT_EQ(root.printed(), "ERROR: prodcfg_read: Can't find mtd for product config\n");
  expect_nothing_kept();
}

TEST_F(prodcfg_test, no_memory) {
  root.fail_call("malloc", {.match = "1024", .error = ENOMEM, .result = 0});
  prodcfg_init();
  EXPECT_EQ(root.printed(), "ERROR: prodcfg_read: malloc(1024) error(Cannot allocate memory)\n");
  expect_nothing_kept();
}

}  // namespace
