// The GPIO library: choosing and initialising a table, looking signals up, driving, reading, listing; what is
// written to the kernel's tree to the byte, and every message.
#include "platform/gpiolib.h"

#include "model_test.h"

namespace {

constexpr uint32_t pin_mode = 0x40144C0A;

class gpiolib_test : public model_test {
 protected:
  static const gpiolib_signal* signal(const char* name) { return gpiolib_lookup_num_or_name_string(name); }

  void use_board(opmode_boards board) {
    g_opmode_board = board;
    gpiolib_init();
    root.printed();
    root.forget();
  }
};

// ---------------------------------------------------------------------------------------------- start

TEST_F(gpiolib_test, before_the_start_the_tk20_is_searched) {
  EXPECT_EQ(gpiolib_current, gpiolib_tk20);
  EXPECT_EQ(gpiolib_current_size, 43);
  EXPECT_EQ(signal("FAULT_LED")->gpio, 74);
}

TEST_F(gpiolib_test, only_exported_lines_are_given_back) {
  make_gpio_tree({31, 32, 100, 159, 160});
  g_opmode_board = opmode_board_unknown;
  gpiolib_init();
  EXPECT_EQ(gpio_writes(), lines({"unexport 32", "unexport 100", "unexport 159"}));
}

TEST_F(gpiolib_test, every_signal_of_a_board_without_gpio_fails_alone) {
  g_opmode_board = opmode_board_tk20;
  EXPECT_TRUE(gpiolib_init());
  const std::string printed = root.printed();
  EXPECT_TRUE(
      printed.starts_with("ERROR: Failed open to export gpio37 (CP9)\n"
                          "ERROR: Failed open to export gpio65 (BARREL_UNDER_VOLT)\n"));
  EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), 39);
}

// ---------------------------------------------------------------------------------------------- look-ups

TEST_F(gpiolib_test, lookup_by_text) {
  EXPECT_EQ(signal("74")->gpio, 74);
  EXPECT_EQ(signal("FAULT_LED")->gpio, 74);
  EXPECT_EQ(signal("4W_B1")->gpio, 137) << "a name that begins with a digit";
  for (const char* none :
       {"31", "160", "20", "0", "-1", "75", "", "fault_led", "FAULT", "FAULT_LEDS", "74x", "4294967370"})
    EXPECT_EQ(signal(none), nullptr) << none;
  EXPECT_EQ(signal(nullptr), nullptr);
}

TEST_F(gpiolib_test, inactive_signals_are_found_nowhere) {
  for (const char* text : {"RELAY", "151", "EXT_IN1", "64", "EXT_IN2", "EN_EXTWAKE"})
    EXPECT_EQ(signal(text), nullptr) << text;
  EXPECT_EQ(gpiolib_lookup_num_int32(151), nullptr);
  g_opmode_io = opmode_io_dio2x1r;
  EXPECT_EQ(signal("RELAY"), gpiolib_lookup_num_int32(151));
  EXPECT_EQ(signal("RELAY")->gpio, 151);
}

TEST_F(gpiolib_test, next_passes_over_inactive_signals) {
  std::vector<int> numbers;
  for (const gpiolib_signal* row = nullptr; (row = gpiolib_lookup_next(row)) != nullptr;)
    numbers.push_back(row->gpio);
  EXPECT_EQ(numbers.size(), 39U);
  EXPECT_EQ(numbers[0], 37);
  EXPECT_EQ(numbers[1], 65);
  EXPECT_EQ(numbers.back(), 158);
  use_board(opmode_board_tk40);
  EXPECT_EQ(gpiolib_lookup_next(nullptr), nullptr);
}

TEST_F(gpiolib_test, index_is_the_position_in_the_table) {
  EXPECT_EQ(gpiolib_table_index(gpiolib_lookup_next(nullptr)), 0);
  EXPECT_EQ(gpiolib_table_index(signal("BARREL_UNDER_VOLT")), 2) << "inactive rows count";
  EXPECT_EQ(gpiolib_table_index(signal("SIGPWR_LED1")), 42);
}

TEST_F(gpiolib_test, partners_of_the_fixture) {
  EXPECT_EQ(gpiolib_lookup_partner(signal("CP9")), nullptr) << "none on the tk20";
  make_whole_gpio_tree();
  use_board(opmode_board_tk10_mfg);
  EXPECT_STREQ(gpiolib_lookup_partner(signal("CP8"))->name, "CP7");
  EXPECT_STREQ(gpiolib_lookup_partner(signal("I2CSDA"))->name, "SPI1_CLK");
  EXPECT_EQ(gpiolib_lookup_partner(signal("NRESETIN")), nullptr);
  EXPECT_EQ(gpiolib_lookup_partner(signal("NRSTTODFLT")), nullptr);
  for (const gpiolib_signal* row = nullptr; (row = gpiolib_lookup_next(row)) != nullptr;) {
    if (row->partner >= 0) {
      EXPECT_EQ(gpiolib_lookup_partner(gpiolib_lookup_partner(row)), row) << row->name;
    }
  }
}

// ---------------------------------------------------------------------------------------------- lines

TEST_F(gpiolib_test, export_of_a_plain_signal) {
  make_gpio_tree({});
  EXPECT_TRUE(gpiolib_export(signal("CP9"), false));
  EXPECT_TRUE(gpiolib_unexport(signal("CP9"), false));
  EXPECT_EQ(gpio_writes(), lines({"export 37", "unexport 37"}));
}

TEST_F(gpiolib_test, export_failures) {
  const gpiolib_signal* cp9 = signal("CP9");
  EXPECT_FALSE(gpiolib_export(cp9, true));
  EXPECT_FALSE(gpiolib_unexport(cp9, true));
  EXPECT_EQ(root.printed(), "");
  EXPECT_FALSE(gpiolib_export(cp9, false));
  EXPECT_FALSE(gpiolib_unexport(cp9, false));
  EXPECT_EQ(root.printed(),
            "ERROR: Failed open to export gpio37 (CP9)\nERROR: Failed open to unexport gpio37 (CP9)\n");
  make_gpio_tree({});
  root.fail_call("write", {.match = "/sys/class/gpio/export", .error = EBUSY});
  root.fail_call("write", {.match = "/sys/class/gpio/unexport", .error = EINVAL});
  EXPECT_FALSE(gpiolib_export(cp9, false));
  EXPECT_FALSE(gpiolib_unexport(cp9, false));
  EXPECT_EQ(root.printed(),
            "ERROR: Failed write to export gpio37 (CP9)\nERROR: Failed write to unexport gpio37 (CP9)\n");
  EXPECT_FALSE(gpiolib_export(cp9, true));
  EXPECT_FALSE(gpiolib_unexport(cp9, true));
  EXPECT_EQ(root.printed(), "");
}

// Two digits and the zero byte.
TEST_F(gpiolib_test, a_write_that_takes_all_but_the_zero_byte_has_failed) {
  make_gpio_tree({74});
  root.fail_call("write", {.match = "/sys/class/gpio/export", .error = 0, .result = 2});
  EXPECT_FALSE(gpiolib_export(signal("FAULT_LED"), false));
  EXPECT_EQ(root.printed(), "ERROR: Failed write to export gpio74 (FAULT_LED)\n");
  root.fail_call("write", {.match = "/value", .error = 0, .result = 1});
  EXPECT_FALSE(gpiolib_set_state(signal("FAULT_LED"), gpiolib_state_0));
  EXPECT_EQ(root.printed(), "ERROR: Failed write to set gpio74 (FAULT_LED) value to '0'\n");
  root.fail_call("write", {.match = "/direction", .error = 0, .result = 3});
  EXPECT_FALSE(gpiolib_set_direction(signal("FAULT_LED"), gpiolib_direction_out));
  EXPECT_EQ(root.printed(), "ERROR: Failed open to set gpio74 (FAULT_LED) direction to 'out'\n");
}

class gpiolib_pin_test : public gpiolib_test {
 protected:
  gpiolib_pin_test() {
    make_whole_gpio_tree();
    use_board(opmode_board_tk10_mfg);
    root.write_file("/dev/ctrl", "");
  }

  static constexpr char to_gpio[] =
      "ioctl /dev/ctrl 0x40144c0a 4700000000000000010000000000000000000000 -> 0";
  static constexpr char to_uart[] =
      "ioctl /dev/ctrl 0x40144c0a 4700000001000000000000000000000000000000 -> 0";
};

TEST_F(gpiolib_pin_test, pin_is_switched_before_the_export_and_after_the_return) {
  root.answer_ioctl(pin_mode, "", 0, "/dev/ctrl");
  EXPECT_TRUE(gpiolib_export(signal("RX2"), false));
  EXPECT_EQ(root.sequence(), lines({to_gpio, "write /sys/class/gpio/export 3"}));
  root.forget();
  EXPECT_TRUE(gpiolib_unexport(signal("RX2"), false));
  EXPECT_EQ(root.sequence(), lines({"write /sys/class/gpio/unexport 3", to_uart}));
}

TEST_F(gpiolib_pin_test, failed_switch_before_the_export_is_always_told) {
  root.fail_ioctl(pin_mode, EBUSY, "/dev/ctrl");
  for (const bool quiet : {false, true}) {
    EXPECT_FALSE(gpiolib_export(signal("RX2"), quiet));
    EXPECT_EQ(root.printed(),
              "ERROR: pin 71 ioctl(VEXO_CTRL_IOCS_PIN_MODE) error=Device or resource busy\n"
              "ERROR: Failed to set pin mode to gpio for gpio71 (RX2)\n");
  }
  EXPECT_EQ(gpio_writes(), lines()) << "the line stays the peripheral's";
}

TEST_F(gpiolib_pin_test, failed_switch_after_the_return) {
  root.fail_ioctl(pin_mode, EBUSY, "/dev/ctrl");
  EXPECT_FALSE(gpiolib_unexport(signal("RX2"), false));
  EXPECT_EQ(root.printed(),
            "ERROR: pin 71 ioctl(VEXO_CTRL_IOCS_PIN_MODE) error=Device or resource busy\n"
            "ERROR: Failed to set pin mode to peripheral for gpio71 (RX2)\n");
  EXPECT_FALSE(gpiolib_unexport(signal("RX2"), true));
  EXPECT_EQ(root.printed(), "ERROR: pin 71 ioctl(VEXO_CTRL_IOCS_PIN_MODE) error=Device or resource busy\n");
}

TEST_F(gpiolib_pin_test, pin_is_not_switched_back_while_the_kernel_has_the_line) {
  root.fail_call("write", {.match = "unexport"});
  EXPECT_FALSE(gpiolib_unexport(signal("RX2"), false));
  EXPECT_EQ(root.events("ioctl").size(), 0U);
}

TEST_F(gpiolib_test, direction) {
  make_gpio_tree({74});
  EXPECT_TRUE(gpiolib_set_direction(signal("FAULT_LED"), gpiolib_direction_in));
  EXPECT_TRUE(gpiolib_set_direction(signal("FAULT_LED"), gpiolib_direction_out));
  EXPECT_EQ(gpio_writes(), lines({"gpio74/direction in", "gpio74/direction out"}));
  root.remove("/sys/class/gpio/gpio74/direction");
  EXPECT_FALSE(gpiolib_set_direction(signal("FAULT_LED"), gpiolib_direction_in));
  EXPECT_EQ(root.printed(), "ERROR: Failed open to set gpio74 (FAULT_LED) direction to 'in'\n");
}

TEST_F(gpiolib_test, state) {
  make_gpio_tree({74});
  EXPECT_TRUE(gpiolib_set_state(signal("FAULT_LED"), gpiolib_state_1));
  EXPECT_TRUE(gpiolib_set_state(signal("FAULT_LED"), gpiolib_state_0));
  EXPECT_EQ(gpio_writes(), lines({"gpio74/value 1", "gpio74/value 0"}));
  root.remove("/sys/class/gpio/gpio74/value");
  EXPECT_FALSE(gpiolib_set_state(signal("FAULT_LED"), gpiolib_state_1));
  EXPECT_EQ(root.printed(), "ERROR: Failed open to set gpio74 (FAULT_LED) value to '1'\n");
}

TEST_F(gpiolib_test, read_state) {
  make_gpio_tree({74});
  const gpiolib_signal* led = signal("FAULT_LED");
  const char* const levels[] = {"0\n", "1\n", "-\n"};
  for (uint32_t i = 0; i < 3; i++) {
    root.write_file("/sys/class/gpio/gpio74/value", levels[i]);
    auto state = static_cast<gpiolib_states>(9);
    EXPECT_TRUE(gpiolib_get_state(led, &state));
    EXPECT_EQ(state, i);
  }
  EXPECT_EQ(root.events("read").at(0).text(), "read /sys/class/gpio/gpio74/value 1") << "one byte";
}

TEST_F(gpiolib_test, read_failures) {
  const gpiolib_signal* led = signal("FAULT_LED");
  auto state = static_cast<gpiolib_states>(9);
  EXPECT_FALSE(gpiolib_get_state(led, &state));
  EXPECT_EQ(root.printed(), "ERROR: Failed open to read gpio74 (FAULT_LED) value\n");
  make_gpio_tree({74});
  root.write_file("/sys/class/gpio/gpio74/value", "");
  EXPECT_FALSE(gpiolib_get_state(led, &state));
  EXPECT_EQ(root.printed(), "ERROR: Failed reading gpio74 (FAULT_LED) value\n");
  root.write_file("/sys/class/gpio/gpio74/value", "x\n");
  EXPECT_FALSE(gpiolib_get_state(led, &state));
  EXPECT_EQ(root.printed(), "");
  EXPECT_EQ(state, 9U);
}

// ---------------------------------------------------------------------------------------------- listing

const std::string heading =
    "num  dir lv signal name          description               source        pull part\n"
    "---- --- -- -------------------- ------------------------- ------------- ---- ----\n";

TEST_F(gpiolib_test, listing_shows_a_dash_for_a_level_that_cannot_be_read) {
  gpiolib_print_info("HOSTA_EN");
  EXPECT_EQ(root.printed(),
            heading +
                "ERROR: Failed open to read gpio143 (HOSTA_EN) value\n"
                "143  out -  HOSTA_EN             USB Host A enable         I2C-0x59/O15  none -   \n");
}

// ---------------------------------------------------------------------------------------------- trace

TEST_F(gpiolib_test, every_operation_names_itself) {
  make_whole_gpio_tree();
  g_opmode_board = opmode_board_unknown;
  log_level = level_trace;
  gpiolib_init();
  EXPECT_EQ(root.printed(), "TRACE: gpiolib_init:\nTRACE: gpiolib_unexport_all:\n");
  g_opmode_board = opmode_board_tk20;
  gpiolib_init();
  root.printed();
  const gpiolib_signal* led = signal("FAULT_LED");
  EXPECT_EQ(root.printed(), "TRACE: gpiolib_lookup_num_or_name_string:\n");
  gpiolib_lookup_num_int32(74);
  gpiolib_lookup_next(led);
  gpiolib_table_index(led);
  gpiolib_lookup_partner(led);
  gpiolib_export(led, true);
  gpiolib_unexport(led, true);
  gpiolib_set_direction(led, gpiolib_direction_out);
  gpiolib_set_state(led, gpiolib_state_1);
  gpiolib_states state;
  gpiolib_get_state(led, &state);
  EXPECT_EQ(root.printed(),
            "TRACE: gpiolib_lookup_num_int32:\nTRACE: gpiolib_lookup_next:\n"
            "TRACE: gpiolib_table_index:\nTRACE: gpiolib_lookup_partner:\n"
            "TRACE: gpiolib_export: 74 (FAULT_LED)\nTRACE: gpiolib_unexport:\n"
            "TRACE: gpiolib_set_direction:\nTRACE: gpiolib_set_state:\n"
            "TRACE: gpiolib_get_state:\n");
  gpiolib_set_state_by_num_or_name("NOPE", "1");
  EXPECT_EQ(root.printed(),
            "TRACE: gpiolib_set_state_by_num_or_name:\n"
            "TRACE: gpiolib_lookup_num_or_name_string:\nERROR: Invalid number or name 'NOPE'\n");
  gpiolib_print_info("NOPE");
  EXPECT_EQ(root.printed(),
            "TRACE: gpiolib_print_info:\n"
            "TRACE: gpiolib_lookup_num_or_name_string:\nERROR: Invalid number or name 'NOPE'\n");
}

}  // namespace
