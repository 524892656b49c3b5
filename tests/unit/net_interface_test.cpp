// Starting and stopping the wired interface, and reading what it is set to: command lines, polls, pauses,
// requests and texts, each way to fail.
#include "net/interface.h"

#include "net_test.h"
#include "util/exec.h"

namespace {

constexpr uint8_t own_mac[6] = {0x00, 0x20, 0x4A, 0x00, 0x00, 0x02};  // of the interface of a fresh root
constexpr uint8_t product_mac[6] = {0x00, 0x00, 0x5E, 0xBC, 0xDE, 0x0F};

const std::string no_product = "NOTE: Can't get mac address from product config, using 00:20:4A:00:00:02\n";
const std::string dhcp = "NOTE: Using DHCP\n";
const std::string fixed = "NOTE: Using static configuration\n";
const std::string unable = "ERROR: Unable to configure network 'eth0'\n";

const lines down = {"/sbin/ifconfig eth0 down 2>&1", "2"};
const lines set_mac = {"/sbin/ifconfig eth0 hw ether 00:00:5E:BC:DE:0F 2>&1"};
const lines up = {"/sbin/ifconfig eth0 up 2>&1"};
const lines linked = {"/sbin/ifconfig eth0", "2", "/sbin/ifconfig eth0"};
const lines lease = {"/sbin/udhcpc -nq -t 5 -i eth0 &>/dev/null"};
const lines settled = {"1"};

lines all_of(std::initializer_list<lines> groups) {
  lines all;
  for (const lines& group : groups)
    all.insert(all.end(), group.begin(), group.end());
  return all;
}

lines times(int count, const lines& group) {
  lines all;
  for (int i = 0; i < count; i++)
    all.insert(all.end(), group.begin(), group.end());
  return all;
}

// ---------------------------------------------------------------------------------------------- names

class interface_name_test : public net_test {};

TEST_F(interface_name_test, only_eth0_is_known_and_only_by_its_exact_name) {
  EXPECT_EQ(net_name_to_index("eth0"), 0);
  for (const char* name : {"eth1", "ETH0", "eth", "eth00", "eth0 ", "", "lo"})
    EXPECT_EQ(net_name_to_index(name), -1) << name;
  EXPECT_STREQ(net_if_names[0], "eth0");
}

TEST_F(interface_name_test, init_marks_everything_as_not_started) {
  net_if_started[0] = 1;
  net_init();
  EXPECT_EQ(net_if_started[0], 0);
}

// ---------------------------------------------------------------------------------------------- start

class net_start_test : public net_test {
 protected:
  static int start_static(const char* address, const char* netmask = nullptr, const char* gateway = nullptr) {
    const uint32_t values[] = {ip(address), netmask != nullptr ? ip(netmask) : 0,
                               gateway != nullptr ? ip(gateway) : 0};
    return net_start(0, &values[0], netmask != nullptr ? &values[1] : nullptr, &values[2]);
  }
  static int start_dhcp() { return net_start(0, nullptr, nullptr, nullptr); }
};

TEST_F(net_start_test, an_address_of_zero_means_dhcp_and_the_rest_is_ignored) {
  const uint32_t zero = 0;
  const uint32_t netmask = ip("255.255.255.0");
  const uint32_t gateway = ip("10.0.0.1");
  EXPECT_TRUE(net_start(0, &zero, &netmask, &gateway));
  EXPECT_EQ(steps(), all_of({up, linked, lease, settled}));
}

TEST_F(net_start_test, the_start_of_the_program_is_traced) {
  log_level = level_trace;
  net_init();
  EXPECT_EQ(root.printed(), "TRACE: net_init:\n");
}

TEST_F(net_start_test, static_configuration_with_another_hardware_address) {
  give_product_mac(product_mac);
  EXPECT_EQ(start_static("192.168.1.5"), 1);
  EXPECT_EQ(root.printed(), fixed + "NOTE: Reconfiguring eth0 mac address\n");
  EXPECT_EQ(steps(), all_of({down, set_mac, {"/sbin/ifconfig eth0 192.168.1.5 2>&1"}, up, linked, settled}));
}

TEST_F(net_start_test, netmask_and_gateway_are_each_set_only_when_given) {
  const uint32_t address = ip("10.0.0.9");
  const uint32_t zero = 0;
  const uint32_t gateway = ip("10.0.0.1");
  EXPECT_TRUE(net_start(0, &address, &zero, &gateway));
  EXPECT_EQ(steps(),
            all_of({down,
                    {"/sbin/ifconfig eth0 10.0.0.9 2>&1", "/sbin/route add default gw 10.0.0.1 eth0 2>&1"},
                    up,
                    linked,
                    settled}));
}

TEST_F(net_start_test, a_started_interface_is_never_configured_again) {
  ASSERT_EQ(start_dhcp(), 1);
  root.printed();
  root.forget();
  EXPECT_EQ(start_static("192.168.1.5", "255.255.255.0"), 1);
  EXPECT_EQ(root.printed(), "");
  EXPECT_EQ(steps(), lines());
  EXPECT_EQ(root.events("ioctl").size(), 0U);
}

TEST_F(net_start_test, a_wrong_index_is_refused_before_anything_is_done) {
  for (const int index : {1, -1, 255}) {
    EXPECT_FALSE(net_start(index, nullptr, nullptr, nullptr));
    EXPECT_EQ(root.printed(), dhcp + "ERROR: Invalid interface number '" + std::to_string(index) +
                                  "'\nERROR: Unable to configure network '<unknown>'\n");
  }
  EXPECT_EQ(steps(), lines());
  EXPECT_EQ(net_if_started[0], 0);
}

TEST_F(net_start_test, a_wrong_index_stops_nothing) {
  ASSERT_TRUE(start_dhcp());
  root.printed();
  root.forget();
  for (const int index : {1, -1, INT32_MIN}) {
    EXPECT_TRUE(net_stop(index)) << index;
  }
  EXPECT_EQ(root.printed(), "");
  EXPECT_EQ(steps(), lines());
  EXPECT_TRUE(net_if_started[0]);
}

struct failing_step {
  const char* tool;
  const char* when;
  size_t steps_before;  // with the failing one
};

TEST_F(net_start_test, the_first_tool_that_fails_or_prints_anything_ends_it) {
  constexpr failing_step cases[] = {
      {"ifconfig", "eth0 down", 1}, {"ifconfig", "hw ether", 3}, {"ifconfig", "eth0 10.0.0.9", 4},
      {"ifconfig", "netmask", 5},   {"route", "add default", 6}, {"ifconfig", "eth0 up", 7},
  };
  give_product_mac(product_mac);
  const lines whole =
      all_of({down,
              set_mac,
              {"/sbin/ifconfig eth0 10.0.0.9 2>&1", "/sbin/ifconfig eth0 netmask 255.0.0.0 2>&1",
               "/sbin/route add default gw 10.0.0.1 eth0 2>&1"},
              up});
  const std::string begin = fixed + "NOTE: Reconfiguring eth0 mac address\n";
  for (const failing_step& failing : cases) {
    set_interface("hwaddr", "00:20:4a:00:00:02");
    root.forget();
    root.answer(failing.tool, {.when = failing.when, .times = 1, .out = "warning\n"});
    EXPECT_EQ(start_static("10.0.0.9", "255.0.0.0", "10.0.0.1"), 0);
    EXPECT_EQ(root.printed(), begin + "NOTE: warning\nERROR: Exit status=1\n" + unable) << failing.when;
    EXPECT_EQ(steps(), lines(whole.begin(), whole.begin() + static_cast<long>(failing.steps_before)));
    root.answer(failing.tool, {.when = failing.when, .times = 1, .status = 3});
    EXPECT_EQ(start_static("10.0.0.9", "255.0.0.0", "10.0.0.1"), 0);
    EXPECT_EQ(net_if_started[0], 0);
    EXPECT_TRUE(root.printed().ends_with("ERROR: Child exit status=3\nERROR: Exit status=255\n" + unable));
  }
}

TEST_F(net_start_test, up_is_awaited_for_three_polls_a_second_apart) {
  set_interface("up_after", "2");
  EXPECT_EQ(start_dhcp(), 1);
  EXPECT_EQ(steps(), all_of({up, times(2, {"/sbin/ifconfig eth0", "1"}), linked, lease, settled}));
  reset();
  root.forget();
  root.printed();
  set_interface("up_after", "3");
  EXPECT_EQ(start_dhcp(), 0);
  EXPECT_EQ(root.printed(), dhcp + no_product + "NOTE: Network interface up timeout\n");
  EXPECT_EQ(steps(), all_of({up, times(2, {"/sbin/ifconfig eth0", "1"}), {"/sbin/ifconfig eth0"}}));
  EXPECT_EQ(net_if_started[0], 0);
}

TEST_F(net_start_test, the_link_is_awaited_for_six_polls_a_second_apart) {
  const lines before = all_of({up, {"/sbin/ifconfig eth0", "2"}, times(5, {"/sbin/ifconfig eth0", "1"})});
  set_interface("running_after", "6");  // the poll for UP lists it, too
  EXPECT_EQ(start_dhcp(), 1);
  EXPECT_EQ(steps(), all_of({before, {"/sbin/ifconfig eth0"}, lease, settled}));
  reset();
  root.forget();
  root.printed();
  set_interface("running_after", "7");
  EXPECT_EQ(start_dhcp(), 0);
  EXPECT_EQ(root.printed(), dhcp + no_product + "NOTE: Network link up timeout\n");
  EXPECT_EQ(steps(), all_of({before, {"/sbin/ifconfig eth0"}}));
  EXPECT_EQ(net_if_started[0], 0);
}

TEST_F(net_start_test, traces_of_a_start) {
  give_product_mac(own_mac);
  log_level = level_trace;
  EXPECT_EQ(start_dhcp(), 1);
  const std::string printed = root.printed();
  EXPECT_TRUE(
      printed.starts_with("TRACE: net_start:\nNOTE: Using DHCP\nTRACE: net_configure:\n"
                          "TRACE: net_get_hwaddr: if_idx=0\n"
                          "TRACE: exec_system_cmd_check_stderr:\n"))
      << printed;
  EXPECT_NE(
      printed.find("VERBOSE: net_syscmd_ifconfig_wait_string: interface=eth0 seconds=2 str=UP find=1\n"),
      std::string::npos);
  EXPECT_NE(
      printed.find("VERBOSE: net_syscmd_ifconfig_wait_string: interface=eth0 seconds=5 str=RUNNING find=1\n"),
      std::string::npos);
}

// ---------------------------------------------------------------------------------------------- waiting

class wait_string_test : public net_test {};

TEST_F(wait_string_test, waits_for_a_text_or_for_its_absence) {
  root.answer("ifconfig", {.times = 2, .out = "eth0\n   UP BROADCAST\n"});
  root.answer("ifconfig", {.out = "eth0\n   BROADCAST\n"});
  EXPECT_TRUE(net_syscmd_ifconfig_wait_string("eth0", 0, "UP", 1));
  EXPECT_TRUE(net_syscmd_ifconfig_wait_string("eth0", 3, "UP", 0));
  EXPECT_EQ(steps(), lines({"/sbin/ifconfig eth0", "/sbin/ifconfig eth0", "1", "/sbin/ifconfig eth0"}));
  EXPECT_FALSE(net_syscmd_ifconfig_wait_string("eth0", 0, "UP", 1));
  EXPECT_TRUE(net_syscmd_ifconfig_wait_string("eth0", 0, "UP", 0));
}

TEST_F(wait_string_test, a_name_too_long_for_the_line_is_refused) {
  EXPECT_FALSE(net_syscmd_ifconfig_wait_string(std::string(2000, 'e').c_str(), 0, "UP", 0));
  EXPECT_EQ(root.printed(), line_too_long(command_line::size() - 1));
  EXPECT_EQ(steps(), lines());
}

TEST_F(wait_string_test, the_whole_listing_is_read_and_the_text_may_stand_anywhere) {
  std::string listing = "first RUNN\n" + std::string(300, 'x') + "RUNNING\n";
  for (int i = 0; i < 20000; i++)
    listing += "more\n";
  root.answer("ifconfig", {.out = listing});
  EXPECT_TRUE(net_syscmd_ifconfig_wait_string("eth0", 0, "RUNNING", 1));
  EXPECT_EQ(root.events("exit").at(0).fields, lines({"ifconfig", "0"})) << "the tool could write all of it";
}

// A long line is looked at in pieces of 255 characters; a text across two of them is not there.
TEST_F(wait_string_test, a_text_split_by_the_end_of_a_piece_is_not_found) {
  const auto look_behind = [this](size_t before) {
    root.drop_rules();
    root.answer("ifconfig", {.times = 1, .out = std::string(before, 'x') + "RUNNING\n"});
    return net_syscmd_ifconfig_wait_string("eth0", 0, "RUNNING", 1);
  };
  EXPECT_EQ(look_behind(255 - 7), 1);
  for (size_t before = 255 - 6; before < 255; before++)
    EXPECT_EQ(look_behind(before), 0) << before;
  EXPECT_EQ(look_behind(255), 1);
}

TEST_F(wait_string_test, a_tool_that_cannot_be_started_is_an_error_at_once) {
  root.fail_call("posix_spawn", {.error = EMFILE});
  EXPECT_FALSE(net_syscmd_ifconfig_wait_string("eth0", 5, "UP", 1));
  EXPECT_FALSE(net_syscmd_ifconfig_wait_string("eth0", 5, "UP", 0));
  const std::string error =
      "ERROR: net_syscmd_ifconfig_wait_string: popen(/sbin/ifconfig eth0) error(Too many open files)\n";
  EXPECT_EQ(root.printed(), error + error);
  EXPECT_EQ(root.sleeps().size(), 0U);
}

// ---------------------------------------------------------------------------------------------- getters

class getter_test : public net_test {
 protected:
  uint32_t address_ = 0x11223344;
  uint8_t hwaddr_[6] = {};
};

TEST_F(getter_test, requests_name_the_interface_and_are_otherwise_empty) {
  set_interface("address", "10.0.2.15");
  set_interface("netmask", "255.255.255.0");
  net_get_ipaddr(0, &address_);
  net_get_netmask(0, &address_);
  net_get_hwaddr(0, hwaddr_);
  const uint32_t numbers[] = {get_address, get_netmask, get_hwaddr};
  const auto requests = root.events("ioctl");
  ASSERT_EQ(requests.size(), 3U);
  for (size_t i = 0; i < 3; i++) {
    EXPECT_EQ(requests[i].fields[0], "socket");
    EXPECT_EQ(std::stoul(requests[i].fields[1], nullptr, 16), numbers[i]);
    EXPECT_EQ(requests[i].fields[2], hex("eth0" + std::string(requests[i].fields[2].size() / 2 - 4, '\0')));
  }
}

TEST_F(getter_test, without_a_socket_there_is_an_error) {
  root.fail_call("socket", {.error = EMFILE});
  EXPECT_FALSE(net_get_ipaddr(0, &address_));
  EXPECT_FALSE(net_get_netmask(0, &address_));
  EXPECT_FALSE(net_get_hwaddr(0, hwaddr_));
  EXPECT_EQ(root.printed(),
            "ERROR: net_get_ipaddr: socket() error(Too many open files)\n"
            "ERROR: net_get_netmask: socket() error(Too many open files)\n"
            "ERROR: net_get_hwaddr: socket() error(Too many open files)\n");
}

TEST_F(getter_test, a_wrong_index_is_refused) {
  for (const int index : {1, -1, INT32_MIN}) {
    EXPECT_FALSE(net_get_ipaddr(index, &address_));
    EXPECT_FALSE(net_get_netmask(index, &address_));
    EXPECT_FALSE(net_get_hwaddr(index, hwaddr_));
    EXPECT_FALSE(net_get_gateway(index, &address_));
    std::string refusals;
    for (int i = 0; i < 4; i++)
      refusals += "ERROR: Invalid interface number '" + std::to_string(index) + "'\n";
    EXPECT_EQ(root.printed(), refusals);
  }
  EXPECT_EQ(root.events("ioctl").size(), 0U);
  EXPECT_EQ(steps(), lines());
}

TEST_F(getter_test, traces) {
  log_level = level_trace;
  net_get_ipaddr(0, &address_);
  net_get_netmask(0, &address_);
  net_get_hwaddr(0, hwaddr_);
  EXPECT_EQ(root.printed(),
            "TRACE: net_get_ipaddr: if_idx=0\nTRACE: net_get_netmask: if_idx=0\n"
            "TRACE: net_get_hwaddr: if_idx=0\n");
}

class gateway_test : public getter_test {
 protected:
  static constexpr const char* command =
      "/bin/iproute | /bin/grep eth0 | /bin/grep default | /usr/bin/awk '{print $3}'";
};

TEST_F(gateway_test, is_the_third_word_of_the_default_route_of_the_interface) {
  root.answer("iproute", {.out = "default via 10.9.9.9 dev eth1\n"
                                 "10.0.2.0/24 dev eth0 scope link  src 10.0.2.15\n"
                                 "default via 10.0.2.2 dev eth0\n"
                                 "default via 10.0.2.3 dev eth0 metric 5\n"});
  EXPECT_TRUE(net_get_gateway(0, &address_));
  EXPECT_EQ(address_, ip("10.0.2.2"));
  EXPECT_EQ(root.shell_lines(), lines({command}));
  EXPECT_EQ(root.printed(), "");
}

TEST_F(gateway_test, a_route_that_is_no_address_is_none) {
  for (const char* route :
       {"default dev eth0 scope link\n", "default via 0.0.0.0 dev eth0\n", "default eth0\n"}) {
    root.answer("iproute", {.out = route});
    EXPECT_FALSE(net_get_gateway(0, &address_)) << route;
  }
  EXPECT_EQ(root.printed(), "");
}

TEST_F(gateway_test, the_last_character_goes_whatever_it_is) {
  root.answer("awk", {.out = "10.0.2.25"});
  EXPECT_TRUE(net_get_gateway(0, &address_));
  EXPECT_EQ(address_, ip("10.0.2.2"));
  root.answer("awk", {.out = std::string("\0\n", 2)});
  EXPECT_FALSE(net_get_gateway(0, &address_));
}

TEST_F(gateway_test, tools_that_cannot_be_started) {
  log_level = level_verbose;
  root.fail_call("posix_spawn", {.error = ENOMEM});
  EXPECT_FALSE(net_get_gateway(0, &address_));
  EXPECT_EQ(root.printed(), std::string("VERBOSE: net_get_gateway: popen(") + command +
                                ")\nERROR: net_get_gateway: popen(" + command +
                                ") error(Cannot allocate memory)\n");
}

}  // namespace
