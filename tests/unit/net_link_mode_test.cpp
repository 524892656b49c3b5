// Link modes: the very records handed to the kernel and the texts made of its answers.
#include "net/link_mode.h"

#include <linux/ethtool.h>

#include "net_test.h"

namespace {

constexpr uint32_t all_modes = 0xF;

// A record whose every field can be told from the others.
ethtool_cmd distinct_settings() {
  ethtool_cmd settings = {};
  settings.cmd = ETHTOOL_GSET;
  settings.supported = 0x2CF;
  settings.advertising = 0x2CF;
  settings.speed = 1000;
  settings.duplex = 7;
  settings.port = 2;
  settings.phy_address = 3;
  settings.transceiver = 4;
  settings.autoneg = 5;
  settings.mdio_support = 6;
  settings.maxtxpkt = 7;
  settings.maxrxpkt = 8;
  settings.speed_hi = 9;
  settings.eth_tp_mdix = 10;
  settings.eth_tp_mdix_ctrl = 11;
  settings.lp_advertising = 12;
  settings.reserved[0] = 13;
  settings.reserved[1] = 14;
  return settings;
}

template <typename Record>
std::string bytes_of(const Record& record) {
  return {reinterpret_cast<const char*>(&record), sizeof record};
}

class link_mode_test : public net_test {
 protected:
  void set_settings(const ethtool_cmd& settings) const { set_interface("settings", hex(bytes_of(settings))); }

  ethtool_cmd settings() const {
    const std::string text = interface_state()["settings"];
    ethtool_cmd settings;
    for (size_t i = 0; i < sizeof settings; i++)
      reinterpret_cast<uint8_t*>(&settings)[i] =
          static_cast<uint8_t>(std::stoul(text.substr(2 * i, 2), nullptr, 16));
    return settings;
  }

  // The records of the requests in hex, each behind the interface's name.
  lines requests() const {
    lines records;
    const std::string name = hex("eth0" + std::string(12, '\0'));
    for (const device_event& event : root.events("ioctl")) {
      EXPECT_EQ(std::stoul(event.fields[1], nullptr, 16), ethtool);
      EXPECT_TRUE(event.fields[2].starts_with(name));
      records.push_back(event.fields[2].substr(name.size()));
    }
    return records;
  }

  // "mode, state", or "nothing" when it fails and stores nothing.
  std::string shown() const {
    const char* mode = nullptr;
    const char* link = nullptr;
    if (net_eth_get_link(0, &mode, &link) == 0)
      return mode == nullptr && link == nullptr ? "nothing" : "something";
    return std::string(mode) + ", " + link;
  }

  std::string shown_for(uint8_t autoneg, uint32_t advertising, uint16_t speed, uint8_t duplex) const {
    ethtool_cmd settings = distinct_settings();
    settings.autoneg = autoneg;
    settings.advertising = advertising;
    settings.speed = speed;
    settings.duplex = duplex;
    set_settings(settings);
    return shown();
  }
};

// ---------------------------------------------------------------------------------------------- setting

TEST_F(link_mode_test, names) {
  EXPECT_EQ(lines(net_eth_linkmode_names, net_eth_linkmode_names + net_eth_linkmode_count),
            lines({"auto", "auto-10h", "auto-10f", "auto-100h", "auto-100f", "10h", "10f", "100h", "100f"}));
}

struct auto_mode {
  int mode;
  uint32_t mask;
};
constexpr auto_mode auto_modes[] = {{0, 0xF}, {1, 0x1}, {2, 0x2}, {3, 0x4}, {4, 0x8}};

TEST_F(link_mode_test, only_what_is_supported_is_advertised_even_if_that_is_nothing) {
  for (const auto_mode& wanted : auto_modes) {
    ethtool_cmd settings_before = distinct_settings();
    settings_before.supported = 0x2C0 | 0x4;
    set_settings(settings_before);
    EXPECT_TRUE(net_eth_set_link(0, wanted.mode));
    EXPECT_EQ(settings().advertising, wanted.mask & 0x4) << net_eth_linkmode_names[wanted.mode];
  }
}

TEST_F(link_mode_test, every_mode_is_read_back_as_what_it_is) {
  constexpr const char* texts[] = {
      "auto, 100 full",          "auto 10 half, 100 full",   "auto 10 full, 100 full",
      "auto 100 half, 100 full", "auto 100 full, 100 full",  "fixed 10 half, 10 half",
      "fixed 10 full, 10 full",  "fixed 100 half, 100 half", "fixed 100 full, 100 full"};
  const ethtool_cmd fresh = settings();
  for (int mode = 0; mode < net_eth_linkmode_count; mode++) {
    set_settings(fresh);
    EXPECT_TRUE(net_eth_set_link(0, mode));
    EXPECT_EQ(shown(), texts[mode]);
  }
}

TEST_F(link_mode_test, a_mode_outside_the_table_fails_at_verbose_and_changes_nothing) {
  const std::string before = root.read_file(ETHERNET_FILE);
  EXPECT_FALSE(net_eth_set_link(0, 9));
  EXPECT_EQ(root.printed(), "");
  log_level = level_verbose;
  EXPECT_FALSE(net_eth_set_link(0, 9));
  EXPECT_FALSE(net_eth_set_link(0, -1));
  EXPECT_EQ(root.printed(), "VERBOSE: Invalid mode setting (9)\nVERBOSE: Invalid mode setting (-1)\n");
  EXPECT_EQ(root.read_file(ETHERNET_FILE), before);
  EXPECT_EQ(requests().size(), 3U) << "settings are read, never set";
}

TEST_F(link_mode_test, a_wrong_interface_is_an_error) {
  EXPECT_FALSE(net_eth_set_link(1, 0));
  const char* text;
  EXPECT_FALSE(net_eth_get_link(2, &text, &text));
  EXPECT_EQ(root.printed(), "ERROR: Invalid interface number '1'\nERROR: Invalid interface number '2'\n");
  EXPECT_FALSE(net_eth_set_link(-1, 0));
  EXPECT_FALSE(net_eth_get_link(-2, &text, &text));
  EXPECT_EQ(root.printed(), "ERROR: Invalid interface number '-1'\nERROR: Invalid interface number '-2'\n");
  EXPECT_EQ(requests(), lines());
}

// ---------------------------------------------------------------------------------------------- failures

TEST_F(link_mode_test, each_request_that_fails_has_its_message) {
  log_level = level_verbose;
  root.fail_call("ioctl", {.match = "0x00008946", .error = EOPNOTSUPP});
  EXPECT_FALSE(net_eth_set_link(0, 0));
  EXPECT_EQ(root.printed(), "VERBOSE: Failed to get device settings for 'eth0'\n");
  EXPECT_EQ(shown(), "nothing");
  EXPECT_EQ(root.printed(), "VERBOSE: Failed to get link state for 'eth0'\n");
  root.drop_rules();
  root.fail_call("ioctl", {.match = "0x00008946", .error = EPERM, .after = 1, .times = 1});
  EXPECT_FALSE(net_eth_set_link(0, 0));
  EXPECT_EQ(root.printed(), "VERBOSE: Failed to set device settings for 'eth0'\n");
  root.fail_call("ioctl", {.match = "0x00008946", .error = EPERM, .after = 1, .times = 1});
  EXPECT_EQ(shown(), "nothing");
  EXPECT_EQ(root.printed(), "VERBOSE: Failed to get device settings for 'eth0'\n");
}

TEST_F(link_mode_test, traces) {
  log_level = level_trace;
  net_eth_set_link(0, 0);
  shown();
  EXPECT_EQ(root.printed(), "TRACE: net_eth_set_link: if_idx=0\nTRACE: net_eth_get_link: if_idx=0\n");
}

// ---------------------------------------------------------------------------------------------- texts

TEST_F(link_mode_test, the_text_of_every_advertised_combination) {
  constexpr const char* lowest[] = {"auto 10 half", "auto 10 full", "auto 100 half", "auto 100 full"};
  for (uint32_t advertised = 0; advertised < 16; advertised++) {
    std::string expected = "<unknown>";
    for (int bit = 3; bit >= 0; bit--) {
      if ((advertised >> bit & 1) != 0) expected = lowest[bit];
    }
    if (advertised == all_modes) expected = "auto";
    EXPECT_EQ(shown_for(1, advertised, 100, 1), expected + ", 100 full") << advertised;
    EXPECT_EQ(shown_for(1, advertised | 0xFFFFFFF0, 100, 1), expected + ", 100 full") << advertised;
  }
}

TEST_F(link_mode_test, the_text_of_every_speed_and_duplex) {
  for (const uint16_t speed : std::initializer_list<uint16_t>{0, 10, 100, 1000, 0xFFFF}) {
    for (const uint8_t duplex : std::initializer_list<uint8_t>{0, 1, 2, 0xFF}) {
      const bool known = (speed == 10 || speed == 100) && duplex <= 1;
      const std::string text = std::to_string(speed) + (duplex == 0 ? " half" : " full");
      EXPECT_EQ(shown_for(0, all_modes, speed, duplex),
                known ? "fixed " + text + ", " + text : "<unknown>, <unknown>");
    }
  }
}

TEST_F(link_mode_test, auto_negotiation_is_on_only_when_its_field_is_one) {
  EXPECT_EQ(shown_for(1, all_modes, 10, 1), "auto, 10 full");
  for (const uint8_t field : std::initializer_list<uint8_t>{0, 2, 0x81, 0xFF})
    EXPECT_EQ(shown_for(field, all_modes, 10, 1), "fixed 10 full, 10 full");
}

TEST_F(link_mode_test, without_a_cable_the_link_is_down_whatever_the_mode) {
  set_interface("cable", "0");
  EXPECT_EQ(shown_for(1, all_modes, 100, 1), "auto, down");
  EXPECT_EQ(shown_for(0, 0, 10, 0), "fixed 10 half, down");
  EXPECT_EQ(shown_for(0, 0, 0xFFFF, 0xFF), "<unknown>, down");
}

}  // namespace
