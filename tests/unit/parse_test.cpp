// Numbers and addresses as commands accept them: every rule at its edges.
#include "util/parse.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace {

// ----------------------------------------------------------------------------------------------- hexadecimal

TEST(strhextou8_test, every_pair_of_bytes_is_a_number_exactly_when_both_are_digits) {
  const std::string digits = "0123456789abcdef";
  const auto value_of = [&digits](int byte) {
    const size_t lower = digits.find(static_cast<char>(byte));
    const size_t upper =
        byte >= 'A' && byte <= 'F' ? static_cast<size_t>(byte - 'A' + 10) : std::string::npos;
    return lower != std::string::npos && byte != 0 ? lower : upper;
  };
  for (int first = 0; first < 256; first++) {
    for (int second = 0; second < 256; second++) {
      const char text[] = {static_cast<char>(first), static_cast<char>(second), '\0'};
      const size_t high = value_of(first);
      const size_t low = value_of(second);
      const bool good = high != std::string::npos && low != std::string::npos;
      ASSERT_EQ(strhextou8(text), good ? static_cast<int>(16 * high + low) : -1) << first << " " << second;
    }
  }
}

TEST(strhextou8_test, third_character_is_not_looked_at) {
  EXPECT_EQ(strhextou8("4aZZ"), 0x4a);
  EXPECT_EQ(strhextou8("00:"), 0);
}

// --------------------------------------------------------------------------------------------------- decimal

struct number_case {
  const char* text;
  uint32_t value;
  int answer;
};

TEST(strdectoul_test, stores_what_was_read_and_accepts_only_whole_numbers) {
  constexpr number_case cases[] = {
      {"0", 0, 1},
      {"7", 7, 1},
      {"010", 10, 1},
      {"0000000000000000000000012", 12, 1},
      {"", 0, 0},
      {" ", 0, 0},
      {"12a", 12, 0},
      {"a12", 0, 0},
      {"1 2", 1, 0},
      {"7 ", 7, 0},
      {"7\n", 7, 0},
      {"1.5", 1, 0},
      {"0x10", 0, 0},
      {"-", 0, 0},
      {"+", 0, 0},
      {"--1", 0, 0},
      {"- 1", 0, 0},
      {"\xff", 0, 0},
      // White space in front and a sign are the library's, and accepted.
      {" 7", 7, 1},
      {"\t\n\v\f\r 7", 7, 1},
      {"+5", 5, 1},
      {" -1", 4294967295, 1},
      {"-1", 4294967295, 1},
      {"-0", 0, 1},
  };
  for (const number_case& c : cases) {
    uint32_t value = 0xAAAAAAAA;
    EXPECT_EQ(strdectoul(c.text, &value), c.answer) << "'" << c.text << "'";
    EXPECT_EQ(value, c.value) << "'" << c.text << "'";
  }
}

TEST(strdectoul_test, numbers_beyond_32_bits_give_the_largest_one) {
  constexpr number_case cases[] = {
      {"2147483647", 2147483647, 1},
      {"2147483648", 2147483648, 1},
      {"4294967294", 4294967294, 1},
      {"4294967295", 4294967295, 1},
      {"4294967296", 4294967295, 1},
      {"4294967296x", 4294967295, 0},
      {"9223372036854775807", 4294967295, 1},
      {"9223372036854775808", 4294967295, 1},
      {"99999999999999999999999999", 4294967295, 1},
      {"-2147483648", 2147483648, 1},
      {"-4294967295", 1, 1},
      {"-4294967296", 4294967295, 1},
      {"-99999999999999999999999999", 4294967295, 1},
  };
  for (const number_case& c : cases) {
    uint32_t value = 0;
    EXPECT_EQ(strdectoul(c.text, &value), c.answer) << c.text;
    EXPECT_EQ(value, c.value) << c.text;
  }
}

// Read as 64 bits these look like small negative numbers.
TEST(strdectoul_test, positive_numbers_just_below_two_to_the_64th_are_not_taken_for_negative_ones) {
  for (const char* text : {"18446744073709551615", "18446744073709551614", "18446744073709551606",
                           "18446744069414584321", "18446744069414584320"}) {
    uint32_t value = 0;
    EXPECT_EQ(strdectoul(text, &value), 1) << text;
    EXPECT_EQ(value, 4294967295) << text;
  }
}

TEST(strtou32_test, base_zero_knows_octal_and_hexadecimal) {
  char* end = nullptr;
  EXPECT_EQ(strtou32("0x1F", &end, 0), 31U);
  EXPECT_STREQ(end, "");
  EXPECT_EQ(strtou32("017", &end, 0), 15U);
  EXPECT_EQ(strtou32("17rest", &end, 0), 17U);
  EXPECT_STREQ(end, "rest");
  EXPECT_EQ(strtou32("", nullptr, 0), 0U);
}

TEST(strtou32_test, errno_tells_overflow_from_the_largest_number) {
  EXPECT_EQ(strtou32("4294967295", nullptr, 10), 4294967295);
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(strtou32("4294967296", nullptr, 10), 4294967295);
  EXPECT_EQ(errno, ERANGE);
  EXPECT_EQ(strtou32("-1", nullptr, 10), 4294967295);
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(strtou32("-4294967296", nullptr, 10), 4294967295);
  EXPECT_EQ(errno, ERANGE);
}

// ------------------------------------------------------------------------------------------------------ IPv4

std::string memory_of(uint32_t value) {
  return {reinterpret_cast<const char*>(&value), sizeof value};
}

TEST(ipaddr4_strtoul_test, first_number_comes_first_in_memory) {
  EXPECT_EQ(memory_of(ipaddr4_strtoul("192.168.1.1")), std::string("\xC0\xA8\x01\x01", 4));
  EXPECT_EQ(memory_of(ipaddr4_strtoul("1.2.3.4")), "\x01\x02\x03\x04");
  EXPECT_EQ(memory_of(ipaddr4_strtoul("255.255.255.255")), "\xFF\xFF\xFF\xFF");
  EXPECT_EQ(memory_of(ipaddr4_strtoul("0.0.0.1")), std::string("\x00\x00\x00\x01", 4));
}

TEST(ipaddr4_strtoul_test, leading_zeros_are_decimal) {
  EXPECT_EQ(memory_of(ipaddr4_strtoul("010.011.012.013")), "\x0A\x0B\x0C\x0D");
  EXPECT_EQ(memory_of(ipaddr4_strtoul("0001.2.3.4")), "\x01\x02\x03\x04");
}

TEST(ipaddr4_strtoul_test, what_follows_four_numbers_is_ignored) {
  for (const char* text : {"1.2.3.4.", "1.2.3.4.5", "1.2.3.4.......", "1.2.3.4.999"}) {
    EXPECT_EQ(memory_of(ipaddr4_strtoul(text)), "\x01\x02\x03\x04") << text;
  }
}

TEST(ipaddr4_strtoul_test, rejected_texts_give_zero) {
  for (const char* text : {"",
                           "1.2.3",
                           "1.2.3.",
                           "1.2.34",
                           "256.1.1.1",
                           "1.256.1.1",
                           "1.1.256.1",
                           "1.1.1.256",
                           "999999999.1.1.1",
                           "a.b.c.d",
                           "1.2.3.a",
                           "1.2.3.4 ",
                           " 1.2.3.4",
                           "+1.2.3.4",
                           "-1.2.3.4",
                           "1..2.3.4",
                           ".1.2.3.4",
                           ".......",
                           "1234567",
                           "1.2.3,4",
                           "1.2.3.4\n",
                           "0x1.2.3.4",
                           "0.0.0.0",
                           "000.000.000.000",
                           "192.168.100.1000x",
                           "192.168.100.0100",
                           "1.2.3.4.5.6.7.8.9"}) {
    EXPECT_EQ(ipaddr4_strtoul(text), 0U) << "'" << text << "'";
  }
  EXPECT_EQ(ipaddr4_strtoul(nullptr), 0U);
}

TEST(ipaddr4_strtoul_test, lengths_from_7_to_15_characters_are_taken) {
  EXPECT_EQ(ipaddr4_strtoul("1.2.3."), 0U);                                      // 6
  EXPECT_EQ(memory_of(ipaddr4_strtoul("1.2.3.4")), "\x01\x02\x03\x04");          // 7
  EXPECT_EQ(memory_of(ipaddr4_strtoul("101.102.103.104")), "\x65\x66\x67\x68");  // 15
  EXPECT_EQ(ipaddr4_strtoul("101.102.103.0104"), 0U);                            // 16
}

// ------------------------------------------------------------------------------------------------------- MAC

TEST(macaddr_hextou8_test, accepts_colons_and_dashes_even_mixed) {
  for (const char* text :
       {"00:20:4a:00:00:01", "00-20-4A-00-00-01", "00:20:4a-00:00:01", "00-20:4a-00:00-01"}) {
    uint8_t mac[6] = {};
    EXPECT_EQ(macaddr_hextou8(text, mac), 1) << text;
    EXPECT_EQ(memcmp(mac, "\x00\x20\x4a\x00\x00\x01", 6), 0) << text;
  }
}

TEST(macaddr_hextou8_test, rejects_other_forms) {
  for (const char* text : {"", "00:20:4a:00:00:0", "00:20:4a:00:00:011", "00.20:4a:00:00:01",
                           "00:20.4a:00:00:01", "00:20:4a.00:00:01", "00:20:4a:00.00:01", "00:20:4a:00:00.01",
                           "g0:20:4a:00:00:01", "00:20:4a:00:00:0g", "00:2:4a:000:00:01", "00 20 4a 00 00 01",
                           "00204a000001-----", "00:20:4a:00:00:-1"}) {
    uint8_t mac[6] = {};
    EXPECT_EQ(macaddr_hextou8(text, mac), 0) << "'" << text << "'";
  }
}

TEST(macaddr_hextou8_test, rejects_group_broadcast_and_zero_addresses) {
  for (const char* text :
       {"01:00:00:00:00:00", "01:00:5e:00:00:01", "ff:ff:ff:ff:ff:ff", "00:00:00:00:00:00"}) {
    uint8_t mac[6] = {};
    EXPECT_EQ(macaddr_hextou8(text, mac), 0) << text;
  }
}

TEST(macaddr_hextou8_test, bytes_are_written_as_they_are_read) {
  uint8_t mac[6] = {9, 9, 9, 9, 9, 9};
  EXPECT_EQ(macaddr_hextou8("02:04:06:xx:0a:0c", mac), 0);
  EXPECT_EQ(memcmp(mac, "\x02\x04\x06\x09\x09\x09", 6), 0);
  EXPECT_EQ(macaddr_hextou8("12/14/16/18/1a/1c", mac), 0) << "the separators are judged after the bytes";
  EXPECT_EQ(memcmp(mac, "\x12\x14\x16\x18\x1a\x1c", 6), 0);
  EXPECT_EQ(macaddr_hextou8("too short", mac), 0);
  EXPECT_EQ(memcmp(mac, "\x12\x14\x16\x18\x1a\x1c", 6), 0);
}

TEST(mac_address_is_valid_test, individual_addresses_other_than_zero_are) {
  const auto valid = [](const char* bytes) {
    return mac_address_is_valid(reinterpret_cast<const uint8_t*>(bytes));
  };
  EXPECT_EQ(mac_address_is_valid(nullptr), 0);
  EXPECT_EQ(valid("\0\0\0\0\0\0"), 0);
  EXPECT_EQ(valid("\0\0\0\0\0\1"), 1);
  EXPECT_EQ(valid("\2\0\0\0\0\0"), 1);
  EXPECT_EQ(valid("\xFE\xFF\xFF\xFF\xFF\xFF"), 1);
  EXPECT_EQ(valid("\1\0\0\0\0\1"), 0);
  EXPECT_EQ(valid("\xFF\xFF\xFF\xFF\xFF\xFF"), 0);
}

}  // namespace
