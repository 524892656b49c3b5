// The control device: request numbers, arguments to the byte, messages, and what counts as success.
#include "loader_test.h"
#include "platform/control_device.h"
#include "platform/pin_mode.h"

namespace {

constexpr uint32_t urst_disable = 0x4C01;
constexpr uint32_t urst_enable = 0x4C02;
constexpr uint32_t urst_status = 0x80044C03;
constexpr uint32_t pin_mode = 0x40144C0A;

const std::string not_there = "No such file or directory";
const std::string busy = "Device or resource busy";
const std::string active = {"\x01\0\0\0", 4};
const std::string inactive = {"\0\0\0\0", 4};

class ctrl_test : public loader_test {
 protected:
  ctrl_test() { root.write_file("/dev/ctrl", ""); }

  // The driver accepts the request, and may store something.
  void accept(uint32_t request, const std::string& data = "") {
    root.answer_ioctl(request, data, 0, "/dev/ctrl");
  }
  void refuse(uint32_t request) { root.fail_ioctl(request, EBUSY, "/dev/ctrl"); }
};

// -------------------------------------------------------------------------------------------- rails and
// lines

struct switch_case {
  bool (*operation)();
  uint32_t request;
  const char* action;
  const char* name;
};

const switch_case switches[] = {
    {ctrl_erst_assert, 0x4C04, "Asserting external reset signal", "ERST_ASSERT"},
    {ctrl_ethphy_powerdown, 0x4C05, "Powering down 3V3_PHY rail", "ETH_POWERDOWN"},
    {ctrl_ethphy_powerup, 0x4C06, "Powering up 3V3_PHY rail", "ETH_POWERUP"},
    {ctrl_wlan_powerdown, 0x4C07, "Powering down 3V3_WL rail", "WL_POWERDOWN"},
    {ctrl_wlan_powerup, 0x4C08, "Powering up 3V3_WL rail", "WL_POWERUP"},
};

class ctrl_switch_test : public ctrl_test, public ::testing::WithParamInterface<switch_case> {};

TEST_P(ctrl_switch_test, sends_one_request_without_data) {
  accept(GetParam().request);
  EXPECT_EQ(GetParam().operation(), 1);
  char event[64];
  snprintf(event, sizeof event, "ioctl /dev/ctrl 0x%08x 0 -> 0", GetParam().request);
  EXPECT_EQ(root.sequence(), lines({event}));
  EXPECT_EQ(root.printed(), "");
}

TEST_P(ctrl_switch_test, tells_before_what_it_does) {
  refuse(GetParam().request);
  log_level = level_verbose;
  EXPECT_EQ(GetParam().operation(), 0);
  EXPECT_EQ(root.printed(), std::string("VERBOSE: ") + GetParam().action + "\nERROR: ioctl(" +
                                GetParam().name + ") error=" + busy + "\n");
}

TEST_P(ctrl_switch_test, device_missing) {
  root.remove("/dev/ctrl");
  EXPECT_EQ(GetParam().operation(), 0);
  EXPECT_EQ(root.printed(), "ERROR: open(/dev/ctrl) error=" + not_there + "\n");
}

INSTANTIATE_TEST_SUITE_P(all, ctrl_switch_test, ::testing::ValuesIn(switches),
                         [](const auto& row) { return std::string(row.param.name); });

// ---------------------------------------------------------------------------------------------- reset input

class ctrl_urst_test : public ctrl_test {};

TEST_F(ctrl_urst_test, disable_and_enable) {
  accept(urst_disable);
  accept(urst_enable);
  EXPECT_TRUE(ctrl_urst_disable());
  EXPECT_TRUE(ctrl_urst_enable());
  EXPECT_EQ(root.sequence(),
            lines({"ioctl /dev/ctrl 0x00004c01 0 -> 0", "ioctl /dev/ctrl 0x00004c02 0 -> 0"}));
  EXPECT_EQ(root.printed(), "");
}

TEST_F(ctrl_urst_test, the_device_is_opened_for_reading_and_writing) {
  root.trace("/dev/ctrl");
  for (const uint32_t request : {urst_disable, urst_enable, urst_status})
    accept(request);
  uint32_t status = 0;
  ctrl_urst_disable();
  ctrl_urst_enable();
  ctrl_urst_status(&status);
  ctrl_sleep(0);
  const std::vector<device_event> opened = root.events("open");
  ASSERT_EQ(opened.size(), 4U);
  for (const device_event& event : opened)
    EXPECT_EQ(event.fields, lines({"/dev/ctrl", "02", "0"}));
}

TEST_F(ctrl_urst_test, status_is_what_the_driver_stores) {
  accept(urst_status, {"\x78\x56\x34\x12", 4});
  uint32_t status = 0;
  EXPECT_TRUE(ctrl_urst_status(&status));
  EXPECT_EQ(status, 0x12345678U);
  EXPECT_EQ(root.events("ioctl").at(0).fields[1], "0x80044c03");
}

TEST_F(ctrl_urst_test, refused_requests_are_logged_and_count_as_done) {
  for (const uint32_t request : {urst_disable, urst_enable, urst_status})
    refuse(request);
  uint32_t status = 7;
  EXPECT_TRUE(ctrl_urst_disable());
  EXPECT_TRUE(ctrl_urst_enable());
  EXPECT_TRUE(ctrl_urst_status(&status));
  EXPECT_EQ(status, 7U);
  EXPECT_EQ(root.printed(), "ERROR: ctrl_urst_disable: ioctl(URST_DISABLE) error=" + busy +
                                "\nERROR: ctrl_urst_enable: ioctl(URST_ENABLE) error=" + busy +
                                "\nERROR: ctrl_urst_status: ioctl(URST_STATUS) error=" + busy + "\n");
}

TEST_F(ctrl_urst_test, device_missing) {
  root.remove("/dev/ctrl");
  uint32_t status = 7;
  EXPECT_FALSE(ctrl_urst_disable());
  EXPECT_FALSE(ctrl_urst_enable());
  EXPECT_FALSE(ctrl_urst_status(&status));
  EXPECT_FALSE(ctrl_sleep(0));
  EXPECT_EQ(root.printed(), "ERROR: ctrl_urst_disable: open() error=" + not_there +
                                "\nERROR: ctrl_urst_enable: open() error=" + not_there +
                                "\nERROR: ctrl_urst_status: open() error=" + not_there +
                                "\nERROR: ctrl_sleep: open() error=" + not_there + "\n");
}

TEST_F(ctrl_urst_test, sleep_sends_the_status_request_with_the_callers_value) {
  accept(urst_status);
  EXPECT_TRUE(ctrl_sleep(0x123));
  EXPECT_EQ(root.sequence(), lines({"ioctl /dev/ctrl 0x80044c03 123 -> 0"}));
  EXPECT_EQ(root.printed(), "");
}

TEST_F(ctrl_urst_test, refused_sleep_is_reported_as_status) {
  root.fail_ioctl(urst_status, EFAULT, "/dev/ctrl");
  EXPECT_TRUE(ctrl_sleep(1));
  EXPECT_EQ(root.printed(), "ERROR: ctrl_sleep: ioctl(URST_STATUS) error=Bad address\n");
}

// ---------------------------------------------------------------------------------------------- the button

class ctrl_test_nresetin_test : public ctrl_test {
 protected:
  void accept_all(const std::string& status) {
    accept(urst_status, status);
    accept(urst_disable);
    accept(urst_enable);
  }
  // What happened: requests by number, sleeps in seconds.
  lines steps() const {
    lines steps;
    for (const device_event& event : root.events()) {
      if (event.kind == "ioctl") steps.push_back(event.fields[1]);
      if (event.kind == "sleep") steps.push_back(event.fields[0]);
    }
    return steps;
  }
};

TEST_F(ctrl_test_nresetin_test, limit_of_zero_looks_once) {
  accept_all(inactive);
  EXPECT_FALSE(ctrl_test_nresetin(0));
  EXPECT_EQ(steps(), lines({"0x80044c03", "0x00004c01", "0.1", "0x80044c03", "0x00004c02"}));
}

TEST_F(ctrl_test_nresetin_test, push_ends_the_wait_after_a_second) {
  accept_all(active);
  EXPECT_TRUE(ctrl_test_nresetin(1000));
  EXPECT_EQ(steps(), lines({"0x80044c03", "0x00004c01", "0.1", "0x80044c03", "1", "0x00004c02"}));
  EXPECT_EQ(root.printed(), "");
}

TEST_F(ctrl_test_nresetin_test, every_status_but_zero_is_a_push) {
  for (const char* status : {"\x02\0\0\0", "\0\0\0\x80"}) {
    root.drop_rules();
    root.forget();
    accept_all({status, 4});
    EXPECT_TRUE(ctrl_test_nresetin(1000));
    EXPECT_EQ(steps(), lines({"0x80044c03", "0x00004c01", "0.1", "0x80044c03", "1", "0x00004c02"}));
  }
}

TEST_F(ctrl_test_nresetin_test, looks_until_the_limit) {
  accept_all(inactive);
  root.set_sleep_scale(0.1);
  EXPECT_FALSE(ctrl_test_nresetin(45));
  const lines done = steps();
  const auto looks = std::count(done.begin(), done.end(), "0.1");
  EXPECT_GE(looks, 2) << "each look took 10 ms of 45";
  EXPECT_LE(looks, 5);
  EXPECT_EQ(done.back(), "0x00004c02");
}

TEST_F(ctrl_test_nresetin_test, names_itself_and_the_limit) {
  accept_all(inactive);
  log_level = level_trace;
  ctrl_test_nresetin(0);
  EXPECT_EQ(root.printed(), "TRACE: ctrl_test_nresetin: ms=0\n");
}

TEST_F(ctrl_test_nresetin_test, refused_status_is_no_push) {
  refuse(urst_status);
  accept(urst_disable);
  accept(urst_enable);
  EXPECT_FALSE(ctrl_test_nresetin(0));
  EXPECT_EQ(steps().back(), "0x00004c02") << "the input resets the board again";
}

TEST_F(ctrl_test_nresetin_test, refused_enable_is_logged_and_the_push_counts) {
  accept(urst_status, active);
  accept(urst_disable);
  refuse(urst_enable);
  EXPECT_TRUE(ctrl_test_nresetin(1000));
  EXPECT_EQ(root.printed(), "ERROR: ctrl_urst_enable: ioctl(URST_ENABLE) error=" + busy + "\n");
}

// The device goes away before the request of that number.
class ctrl_nresetin_opening_test : public ctrl_test_nresetin_test {
 protected:
  void expect_end(long request, const std::string& function, const lines& expected) {
    root.fail_call("open", {.match = "/dev/ctrl", .error = ENXIO, .after = request - 1, .times = 1});
    EXPECT_FALSE(ctrl_test_nresetin(0));
    EXPECT_EQ(steps(), expected);
    EXPECT_EQ(root.printed(), "ERROR: " + function + ": open() error=No such device or address\n");
  }
};

TEST_F(ctrl_nresetin_opening_test, first_status) {
  expect_end(1, "ctrl_urst_status", {});
}

TEST_F(ctrl_nresetin_opening_test, disable) {
  accept(urst_status, active);
  expect_end(2, "ctrl_urst_disable", {"0x80044c03"});
}

TEST_F(ctrl_nresetin_opening_test, status_while_waiting) {
  accept_all(inactive);
  expect_end(3, "ctrl_urst_status", {"0x80044c03", "0x00004c01", "0.1", "0x00004c02"});
}

TEST_F(ctrl_nresetin_opening_test, enable_after_a_push) {
  accept(urst_status, active);
  accept(urst_disable);
  expect_end(4, "ctrl_urst_enable", {"0x80044c03", "0x00004c01", "0.1", "0x80044c03", "1"});
}

// ---------------------------------------------------------------------------------------------- pins

struct pin_case {
  bool (*operation)(int);
  const char* name;
  const char* peripheral;  // what the log calls it
  const char* label;       // in errors
  const char* mode_0;      // the 20 bytes of the request
  const char* mode_1;
};

const pin_case pins[] = {
#include "pins.inc"
};

class ctrl_pin_test : public ctrl_test, public ::testing::WithParamInterface<pin_case> {
 protected:
  static std::string setting(const char* mode) {
    return std::string("VERBOSE: Setting ") + GetParam().name + " pin to " + mode + " mode\n";
  }
};

TEST_P(ctrl_pin_test, mode_0_is_the_peripheral) {
  accept(pin_mode);
  log_level = level_verbose;
  EXPECT_EQ(GetParam().operation(0), 1);
  EXPECT_EQ(root.sequence(),
            lines({std::string("ioctl /dev/ctrl 0x40144c0a ") + GetParam().mode_0 + " -> 0"}));
  EXPECT_EQ(root.printed(), setting(GetParam().peripheral));
}

TEST_P(ctrl_pin_test, every_other_mode_is_gpio) {
  accept(pin_mode);
  log_level = level_verbose;
  const std::string event = std::string("ioctl /dev/ctrl 0x40144c0a ") + GetParam().mode_1 + " -> 0";
  for (const int mode : {1, 2, -1}) {
    root.forget();
    EXPECT_EQ(GetParam().operation(mode), 1);
    EXPECT_EQ(root.sequence(), lines({event})) << mode;
    EXPECT_EQ(root.printed(), setting("gpio")) << mode;
  }
}

TEST_P(ctrl_pin_test, refused) {
  refuse(pin_mode);
  EXPECT_EQ(GetParam().operation(1), 0);
  EXPECT_EQ(root.printed(), std::string("ERROR: pin ") + GetParam().label +
                                " ioctl(VEXO_CTRL_IOCS_PIN_MODE) error=" + busy + "\n");
}

TEST_P(ctrl_pin_test, device_missing) {
  root.remove("/dev/ctrl");
  EXPECT_EQ(GetParam().operation(0), 0);
  EXPECT_EQ(root.printed(), "ERROR: open(/dev/ctrl) error=" + not_there + "\n");
}

INSTANTIATE_TEST_SUITE_P(all, ctrl_pin_test, ::testing::ValuesIn(pins),
                         [](const auto& row) { return std::string(row.param.name); });

// The device is opened for reading and writing, once for every request.
TEST_F(ctrl_test, device_is_opened_read_write_and_closed) {
  accept(pin_mode);
  root.trace("/dev/ctrl");
  ctrl_rx2_mode(0);
  ctrl_rx2_mode(1);
  lines opened;
  for (const device_event& event : root.events("open"))
    opened.push_back(event.text());
  EXPECT_EQ(opened, lines({"open /dev/ctrl 02 0", "open /dev/ctrl 02 0"}));
}

}  // namespace
