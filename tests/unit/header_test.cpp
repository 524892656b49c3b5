// Image headers: every fault alone and in order, what is printed, versions, codes, contents types.
#include "image/header.h"

#include "loader_test.h"

namespace {

class image_header_test : public loader_test {
 protected:
  static int verify(std::string& header, uint32_t length = 256, int quiet = 0) {
    return image_header_verify(octets(header), length, quiet);
  }
  const part good = {.type = 4, .contents = noise(1000)};
};

// ---------------------------------------------------------------------------------------------- verification

struct fault {
  const char* name;
  void (*put)(std::string& header);
  const char* message;
};

// In the order in which they are looked for; the size and the checksum come before and after.
constexpr fault faults[] = {
    {"ID", [](std::string& h) { h[0] = 'X'; }, "ERROR: bad Header ID in header\n"},
    {"type", [](std::string& h) { put_number(h, 8, 1); }, "ERROR: bad HeaderType in header\n"},
    {"length", [](std::string& h) { put_number(h, 12, 257); }, "ERROR: bad HeaderLength in header\n"},
    {"mangle type", [](std::string& h) { put_number(h, 28, 1); },
     "ERROR: bad ContentsMangleType in header\n"},
    {"contents length", [](std::string& h) { put_number(h, 44, 999); },
     "ERROR: ContentsLength/ContentsFinalLength mismatch\n"},
    {"passcode type", [](std::string& h) { put_number(h, 132, 1); }, "ERROR: bad ContentsPasscodeType\n"},
    {"contents checksum", [](std::string& h) { put_number(h, 92, 0); },
     "ERROR: image_header_verify: ContentsChecksum32/ContentsFinalChecksum32 mismatch\n"},
};

TEST_F(image_header_test, a_good_header_is_accepted_silently) {
  std::string header = good.header();
  EXPECT_EQ(verify(header), 1);
  EXPECT_EQ(verify(header, 0xFFFFFFFF), 1);
  EXPECT_EQ(header, good.header());
  EXPECT_EQ(root.printed(), "");
}

TEST_F(image_header_test, each_fault_alone_is_named) {
  for (const fault& f : faults) {
    std::string header = good.header();
    f.put(header);
    seal(header);
    const std::string before = header;
    EXPECT_EQ(verify(header), 0) << f.name;
    EXPECT_EQ(root.printed(), f.message);
    EXPECT_EQ(header, before) << "left as it was";
  }
}

TEST_F(image_header_test, of_two_faults_the_first_in_order_is_named) {
  for (const fault& first : faults) {
    for (const fault* second = &first + 1; second != std::end(faults); second++) {
      std::string header = good.header();
      second->put(header);
      first.put(header);
      seal(header);
      EXPECT_EQ(verify(header), 0);
      EXPECT_EQ(root.printed(), first.message) << first.name << " and " << second->name;
    }
  }
}

TEST_F(image_header_test, all_other_faults_come_before_the_checksum) {
  for (const fault& f : faults) {
    std::string header = good.header();
    f.put(header);
    header[16] = static_cast<char>(header[16] + 1);
    EXPECT_EQ(verify(header), 0);
    EXPECT_EQ(root.printed(), f.message);
  }
}

TEST_F(image_header_test, a_buffer_below_256_bytes_is_refused_before_it_is_looked_at) {
  std::string header(256, 'X');
  for (const uint32_t length : {0U, 1U, 255U}) {
    EXPECT_EQ(verify(header, length), 0);
    EXPECT_EQ(root.printed(), "ERROR: The size of the header buffer is too small to be valid!\n");
  }
  header = good.header();
  EXPECT_EQ(verify(header, 256), 1);
}

TEST_F(image_header_test, the_id_is_compared_in_all_eight_bytes) {
  for (size_t i = 0; i < 8; i++) {
    std::string header = good.header();
    header[i] = static_cast<char>(header[i] ^ 1);
    seal(header);
    EXPECT_EQ(verify(header), 0) << i;
    EXPECT_EQ(root.printed(), "ERROR: bad Header ID in header\n");
  }
}

TEST_F(image_header_test, numbers_are_compared_in_all_four_bytes) {
  constexpr struct {
    size_t offset;
    const char* message;
  } must_be_zero[] = {
      {8, "ERROR: bad HeaderType in header\n"},
      {28, "ERROR: bad ContentsMangleType in header\n"},
      {132, "ERROR: bad ContentsPasscodeType\n"},
  };
  for (const auto& field : must_be_zero) {
    for (size_t i = 0; i < 4; i++) {
      std::string header = good.header();
      header[field.offset + i] = '\x01';
      seal(header);
      EXPECT_EQ(verify(header), 0) << field.offset << " " << i;
      EXPECT_EQ(root.printed(), field.message);
    }
  }
  for (const uint32_t length : {0U, 255U, 0x00010000U, 0x00000001U, 0xFFFFFFFFU}) {
    std::string header = good.header();
    put_number(header, 12, length);
    seal(header);
    EXPECT_EQ(verify(header), 0) << length;
    EXPECT_EQ(root.printed(), "ERROR: bad HeaderLength in header\n");
  }
}

TEST_F(image_header_test, expected_checksum_is_shown_byte_reversed_and_the_calculated_one_true) {
  std::string header = good.header();
  const std::string stored = header.substr(16, 4);
  put_number(header, 16, 0x11223344);
  EXPECT_EQ(verify(header), 0);
  char message[128];
  std::string calculated = header;
  seal(calculated);
  snprintf(message, sizeof message,
           "ERROR: Header Checksum failed! Expected 0x44332211 and calculated 0x%s\n", hex(stored).c_str());
  EXPECT_EQ(root.printed(), message);
  EXPECT_EQ(header.substr(16, 4), big_endian(0x11223344)) << "restored";
}

TEST_F(image_header_test, checksums_are_shown_without_leading_zeros) {
  std::string header = good.header();
  put_number(header, 16, 0x01000000);
  EXPECT_EQ(verify(header), 0);
  EXPECT_TRUE(root.printed().starts_with("ERROR: Header Checksum failed! Expected 0x1 and calculated 0x"));
}

TEST_F(image_header_test, a_flipped_bit_in_any_byte_is_noticed) {
  for (size_t i = 0; i < 256; i++) {
    std::string header = good.header();
    header[i] = static_cast<char>(header[i] ^ 0x10);
    EXPECT_EQ(verify(header, 256, 1), 0) << i;
  }
}

TEST_F(image_header_test, quiet_holds_messages_back_below_verbosity_six) {
  std::string header = good.header();
  faults[0].put(header);
  std::string unsealed = good.header();
  put_number(unsealed, 16, 1);
  for (log_level = 3; log_level <= 5; log_level++) {
    EXPECT_EQ(verify(header, 256, 1), 0);
    EXPECT_EQ(verify(header, 10, 1), 0);
    EXPECT_EQ(verify(unsealed, 256, 1), 0);
    EXPECT_EQ(root.printed(), "") << log_level;
  }
  for (; log_level <= 7; log_level++) {
    EXPECT_EQ(verify(header, 256, 1), 0);
    EXPECT_EQ(root.printed(), "ERROR: bad Header ID in header\n");
    EXPECT_EQ(verify(header, 10, 1), 0);
    EXPECT_EQ(root.printed(), "ERROR: The size of the header buffer is too small to be valid!\n");
    EXPECT_EQ(verify(unsealed, 256, 1), 0);
    EXPECT_TRUE(root.printed().starts_with("ERROR: Header Checksum failed! Expected 0x1000000 and"));
  }
}

// ---------------------------------------------------------------------------------------------- print-out

TEST_F(image_header_test, info_shows_type_length_checksum_version_and_code) {
  EXPECT_EQ(image_print_info(octets(good.header())), 1);
  EXPECT_EQ(root.printed(), good.info());
}

TEST_F(image_header_test, a_version_letter_that_cannot_be_printed_is_a_question_mark) {
  for (const char* letter : {"\x1b", "\x07", "\x9b"}) {
    std::string header = good.header();
    header.replace(32, 6, std::string("\1\2\3\4") + letter + "\5");
    EXPECT_EQ(image_print_info(octets(header)), 1);
    EXPECT_NE(root.printed().find("  Contents Version: 1.2.3.4?5\n"), std::string::npos);
  }
}

TEST_F(image_header_test, types_with_a_destination_are_supported_and_all_others_are_not) {
  for (const uint32_t type : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 9U, 10U, 11U, 12U, 13U, 14U, 15U, 255U,
                              0x80000000U, 0xFFFFFFFFU}) {
    const part p = {.type = type, .contents = "x"};
    const bool supported = (type >= 1 && type <= 5) || type == 8 || (type >= 10 && type <= 14);
    EXPECT_EQ(image_print_info(octets(p.header())), supported) << type;
    EXPECT_EQ(root.printed(),
              p.info() + (supported ? ""
                                    : "ERROR: Contents Type " + std::to_string(static_cast<int>(type)) +
                                          " not supported\n"));
  }
}

TEST_F(image_header_test, a_type_whose_partition_the_device_lacks_is_not_supported) {
  mtd_config_table[8].image = mtd_image_other;
  EXPECT_EQ(image_print_info(octets(part{.type = 8, .contents = "x"}.header())), 0);
  EXPECT_TRUE(root.printed().ends_with("ERROR: Contents Type 8 not supported\n"));
}

TEST_F(image_header_test, lengths_and_checksums_of_32_bits_are_shown) {
  struct {
    uint32_t length;
    const char* shown;
  } constexpr cases[] = {
      {0, "0x0 (0)"},
      {0x7FFFFFFF, "0x7FFFFFFF (2147483647)"},
      {0x80000000, "0x80000000 (-2147483648)"},
      {0xFFFFFFFF, "0xFFFFFFFF (-1)"},
  };
  for (const auto& c : cases) {
    std::string header = good.header();
    put_number(header, 40, c.length);
    put_number(header, 52, 0x00ABCDEF);
    image_print_info(octets(header));
    const std::string printed = root.printed();
    EXPECT_NE(printed.find(std::string("  Contents Length: ") + c.shown + "\n"), std::string::npos)
        << printed;
    EXPECT_NE(printed.find("  Contents Checksum: 0x00ABCDEF\n"), std::string::npos) << printed;
  }
}

TEST_F(image_header_test, missing_version_and_code_are_none) {
  const part p = {.type = 4, .contents = "x", .version = std::string(6, '\0'), .code = std::string(2, '\0')};
  EXPECT_EQ(image_print_info(octets(p.header())), 1);
  EXPECT_TRUE(root.printed().ends_with("  Contents Version: none\n  Product Code: none\n"));
}

// ---------------------------------------------------------------------------------------------- version and
// code

TEST(image_get_version_string_test, six_bytes_make_the_dotted_text) {
  struct {
    std::string bytes;
    const char* text;
  } const cases[] = {
      {{3, 1, 0, 0, 'R', 1}, "3.1.0.0R1"},
      {{'\xFF', '\xFF', '\xFF', '\xFF', 'Z', '\xFF'}, "255.255.255.255Z255"},
      {{0, 0, 0, 0, 'A', 0}, "0.0.0.0A0"},
      {{1, 0, 0, 0, ' ', 0}, "1.0.0.0 0"},
  };
  for (const auto& c : cases) {
    char text[32];
    EXPECT_EQ(image_get_version_string(octets(c.bytes), text, sizeof text), 1);
    EXPECT_STREQ(text, c.text);
  }
}

TEST(image_get_version_string_test, only_all_zeros_are_no_version) {
  char text[32] = "kept";
  EXPECT_EQ(image_get_version_string(octets(std::string(6, '\0')), text, sizeof text), 0);
  for (size_t i = 0; i < 6; i++) {
    std::string bytes(6, '\0');
    bytes[i] = 'A';
    EXPECT_EQ(image_get_version_string(octets(bytes), text, sizeof text), 1) << i;
  }
}

TEST(image_get_version_string_test, never_writes_past_the_buffer) {
  char text[8] = "1234567";
  EXPECT_EQ(image_get_version_string(octets(std::string("\x03\x01\x05\x07R\x01", 6)), text, 5), 1);
  EXPECT_STREQ(text, "3.1.");
  EXPECT_EQ(text[5], '6');
}

TEST(image_get_product_code_string_test, two_printable_characters_are_a_code) {
  char text[4];
  EXPECT_EQ(image_get_product_code_string(octets(std::string("AB")), text, sizeof text), 1);
  EXPECT_STREQ(text, "AB");
  EXPECT_EQ(image_get_product_code_string(octets(std::string(" ~")), text, sizeof text), 1);
  EXPECT_STREQ(text, " ~");
}

TEST(image_get_product_code_string_test, one_unprintable_byte_is_none) {
  char text[4];
  for (const std::string& code : {std::string("\0A", 2), std::string("A\0", 2), std::string("A\x1F"),
                                  std::string("\x7F"
                                              "A"),
                                  std::string("A\x80"), std::string("\xFF\xFF")}) {
    EXPECT_EQ(image_get_product_code_string(octets(code), text, sizeof text), 0) << hex(code);
  }
}

// ---------------------------------------------------------------------------------------------- types

TEST(contents_type_test, kinds_of_partitions_have_their_contents_types) {
  constexpr uint32_t expected[15] = {1, 0, 2, 3, 4, 10, 0, 8, 0, 0, 0, 0, 0, 0, 0};
  for (int kind = 0; kind < 15; kind++) {
    EXPECT_EQ(mtd_image_type_to_image_contents_type(kind), expected[kind]) << kind;
  }
  EXPECT_EQ(mtd_image_type_to_image_contents_type(-1), 0U);
  EXPECT_EQ(mtd_image_type_to_image_contents_type(15), 0U);
}

TEST(contents_type_test, contents_types_have_their_kinds_of_partitions) {
  constexpr int expected[16] = {-1, 0, 2, 3, 4, 5, -1, -1, 7, -1, 5, 12, 5, 5, 13, -1};
  for (uint32_t type = 0; type < 16; type++) {
    EXPECT_EQ(image_contents_type_to_mtd_image_type(type), expected[type]) << type;
  }
  EXPECT_EQ(image_contents_type_to_mtd_image_type(0xFFFFFFFF), -1);
}

}  // namespace
