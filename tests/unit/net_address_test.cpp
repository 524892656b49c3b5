// Addresses as text and as parameters.
#include "net/address.h"

#include "net_test.h"

namespace {

class address_test : public net_test {};

TEST_F(address_test, text_of_addresses) {
  EXPECT_STREQ(net_format_ip(ip("192.168.1.5")).text(), "192.168.1.5");
  EXPECT_STREQ(net_format_ip(0U).text(), "0.0.0.0");
  EXPECT_STREQ(net_format_ip(UINT32_MAX).text(), "255.255.255.255");
  const uint8_t octets[] = {10, 0, 200, 255};
  EXPECT_STREQ(net_format_ip(octets).text(), "10.0.200.255");
  const uint8_t hwaddr[] = {0x00, 0x20, 0x4A, 0xBC, 0xDE, 0xFF};
  EXPECT_STREQ(net_format_hwaddr(hwaddr).text(), "00:20:4A:BC:DE:FF");
}

TEST_F(address_test, octets_stand_in_dotted_order) {
  const uint32_t address = ip("1.2.3.4");
  EXPECT_EQ(memcmp(net_octets(address), "\x01\x02\x03\x04", 4), 0);
}

TEST_F(address_test, parameters) {
  uint32_t address = 0;
  EXPECT_TRUE(net_parse_ip("192.168.1.5", "IP address", &address));
  EXPECT_EQ(address, ip("192.168.1.5"));
  EXPECT_TRUE(net_parse_ip("255.255.255.0", "netmask", &address));
  EXPECT_EQ(address, ip("255.255.255.0"));
  EXPECT_EQ(root.printed(), "");
}

TEST_F(address_test, refused_parameters_are_named_with_what_they_should_be) {
  uint32_t address = 0;
  for (const char* word : {"0.0.0.0", "255.255.255.255", "256.1.1.1", "1.2.3", "eth1", "", "1.2.3.4x"}) {
    EXPECT_FALSE(net_parse_ip(word, "netmask", &address)) << word;
    EXPECT_EQ(root.printed(), std::string("ERROR: Invalid netmask '") + word + "'\n");
  }
}

}  // namespace
