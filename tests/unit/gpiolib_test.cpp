// The GPIO library: choosing and initialising a table, looking signals up, driving, reading, listing; what is
// written to the kernel's tree to the byte, and every message.
#include "platform/gpiolib.h"

#include "board_test.h"

namespace {

constexpr uint32_t pin_mode = 0x40144C0A;

class gpiolib_test : public board_test {
 protected:
  static const gpiolib_signal* signal(const char* name) { return gpiolib_lookup_num_or_name_string(name); }

  void use_board(uint32_t board) {
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

TEST_F(gpiolib_test, table_of_each_board) {
  const struct {
    const gpiolib_signal* table;
    int32_t size;
  } expected[] = {{nullptr, 0},       {gpiolib_tk10_mfg, 25}, {nullptr, 0},
                  {gpiolib_tk20, 43}, {nullptr, 0},           {nullptr, 0}};
  for (uint32_t board = 0; board < opmode_board_count; board++) {
    g_opmode_board = board;
    EXPECT_EQ(gpiolib_init(), 1);
    EXPECT_EQ(gpiolib_current, expected[board].table) << board;
    EXPECT_EQ(gpiolib_current_size, expected[board].size) << board;
  }
}

// The lines of the tk20 that are there without the I/O option; "" for inputs.
const std::vector<std::pair<int, std::string>> tk20_lines = {
    {37, ""},   {65, ""},   {66, ""},   {72, ""},   {73, ""},   {74, "1"},  {77, "0"},  {80, ""},
    {86, "1"},  {87, ""},   {88, "1"},  {89, ""},   {97, ""},   {128, "1"}, {129, "1"}, {130, "1"},
    {132, "0"}, {133, "0"}, {134, ""},  {135, ""},  {136, "1"}, {137, "1"}, {138, "1"}, {140, "0"},
    {141, "0"}, {142, "0"}, {143, "0"}, {144, "0"}, {147, "0"}, {148, "0"}, {149, "0"}, {150, "0"},
    {152, "0"}, {153, "0"}, {154, "0"}, {155, "0"}, {156, "0"}, {157, "0"}, {158, "0"}};

lines initialisation(const std::vector<std::pair<int, std::string>>& lines_of_board) {
  lines writes;
  for (const auto& [number, level] : lines_of_board) {
    const std::string line = "gpio" + std::to_string(number);
    writes.push_back("export " + std::to_string(number));
    if (!level.empty()) {
      writes.push_back(line + "/direction out");
      writes.push_back(line + "/value " + level);
    }
  }
  return writes;
}

lines unexports(int first, int last) {
  lines writes;
  for (int number = first; number <= last; number++)
    writes.push_back("unexport " + std::to_string(number));
  return writes;
}

lines operator+(lines first, const lines& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

TEST_F(gpiolib_test, everything_is_given_back_then_the_table_is_taken_in_its_order) {
  make_whole_gpio_tree();
  g_opmode_board = opmode_board_tk20;
  EXPECT_EQ(gpiolib_init(), 1);
  EXPECT_EQ(gpio_writes(), unexports(32, 159) + initialisation(tk20_lines));
  EXPECT_EQ(root.printed(), "");
}

TEST_F(gpiolib_test, only_exported_lines_are_given_back) {
  make_gpio_tree({31, 32, 100, 159, 160});
  g_opmode_board = opmode_board_unknown;
  gpiolib_init();
  EXPECT_EQ(gpio_writes(), lines({"unexport 32", "unexport 100", "unexport 159"}));
}

TEST_F(gpiolib_test, io_option_brings_its_signals) {
  make_whole_gpio_tree();
  g_opmode_board = opmode_board_tk20;
  g_opmode_io = opmode_io_dio2x1r;
  gpiolib_init();
  auto expected = tk20_lines;
  for (const auto& line :
       std::vector<std::pair<int, std::string>>{{64, ""}, {67, ""}, {139, "1"}, {151, "0"}})
    expected.insert(std::lower_bound(expected.begin(), expected.end(), line), line);
  EXPECT_EQ(gpio_writes(), unexports(32, 159) + initialisation(expected));
}

TEST_F(gpiolib_test, pins_with_a_peripheral_keep_it_and_signals_without_number_are_left) {
  make_whole_gpio_tree();
  g_opmode_board = opmode_board_tk10_mfg;
  gpiolib_init();
  std::vector<std::pair<int, std::string>> expected;
  for (const int number : {36, 37, 64, 65, 66, 67, 72, 73, 74, 77, 80, 86, 87, 88, 89, 97})
    expected.emplace_back(number, "");
  EXPECT_EQ(gpio_writes(), unexports(32, 159) + initialisation(expected));
  EXPECT_EQ(root.events("ioctl").size(), 0U) << "no pin is switched";
}

TEST_F(gpiolib_test, console_input_is_discarded_at_the_end) {
  const serial_port port(1);
  tty_cli.fd = fcntl(port.device_fd(), F_DUPFD_CLOEXEC, 3);
  make_whole_gpio_tree();
  g_opmode_board = opmode_board_tk20;
  gpiolib_init();
  const device_event last = root.events().back();
  EXPECT_EQ(last.kind, "tcflush");
  EXPECT_EQ(last.fields[1], "input");
  close(tty_cli.fd);
}

TEST_F(gpiolib_test, failures_to_give_back_are_told_only_to_the_curious) {
  make_gpio_tree({40, 41});
  root.fail_call("open", {.match = "unexport", .error = EACCES, .times = 2});
  gpiolib_init();
  EXPECT_EQ(root.printed(), "");
  root.fail_call("write", {.match = "unexport", .error = EINVAL, .times = 1});
  log_level = level_verbose;
  gpiolib_init();
  EXPECT_EQ(root.printed(), "ERROR: Failed write to unexport gpio40\n");
  root.remove("/sys/class/gpio/unexport");
  gpiolib_init();
  EXPECT_EQ(root.printed(), "ERROR: Failed open to unexport gpio40\nERROR: Failed open to unexport gpio41\n");
}

TEST_F(gpiolib_test, every_signal_of_a_board_without_gpio_fails_alone) {
  g_opmode_board = opmode_board_tk20;
  EXPECT_EQ(gpiolib_init(), 1);
  const std::string printed = root.printed();
  EXPECT_TRUE(
      printed.starts_with("ERROR: Failed open to export gpio37 (CP9)\n"
                          "ERROR: Failed open to export gpio65 (BARREL_UNDER_VOLT)\n"));
  EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), 39);
}

TEST_F(gpiolib_test, failed_steps_of_an_output_end_its_initialisation) {
  make_whole_gpio_tree();
  g_opmode_board = opmode_board_tk20;
  root.remove("/sys/class/gpio/gpio74/direction");
  root.remove("/sys/class/gpio/gpio77/value");
  root.fail_call("write", {.match = "gpio86/value", .error = EIO});
  EXPECT_EQ(gpiolib_init(), 1);
  EXPECT_EQ(root.printed(),
            "ERROR: Failed open to set gpio74 (FAULT_LED) direction to 'out'\n"
            "ERROR: Failed open to set gpio77 (DISABLE_SPI_CS) value to '0'\n"
            "ERROR: Failed write to set gpio86 (DTR2_232) value to '1'\n");
  const lines writes = gpio_writes();
  EXPECT_EQ(std::count(writes.begin(), writes.end(), "gpio74/value 1"), 0);
  EXPECT_EQ(writes.back(), "gpio158/value 0") << "the others are initialised";
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

TEST_F(gpiolib_test, lookup_by_number) {
  EXPECT_STREQ(gpiolib_lookup_num_int32(158)->name, "SIGPWR_LED1");
  EXPECT_EQ(gpiolib_lookup_num_int32(159), nullptr);
  EXPECT_EQ(gpiolib_lookup_num_int32(-1), nullptr);
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
  EXPECT_EQ(gpiolib_export(signal("CP9"), false), 1);
  EXPECT_EQ(gpiolib_unexport(signal("CP9"), false), 1);
  EXPECT_EQ(gpio_writes(), lines({"export 37", "unexport 37"}));
}

TEST_F(gpiolib_test, export_failures) {
  const gpiolib_signal* cp9 = signal("CP9");
  EXPECT_EQ(gpiolib_export(cp9, true), 0);
  EXPECT_EQ(gpiolib_unexport(cp9, true), 0);
  EXPECT_EQ(root.printed(), "");
  EXPECT_EQ(gpiolib_export(cp9, false), 0);
  EXPECT_EQ(gpiolib_unexport(cp9, false), 0);
  EXPECT_EQ(root.printed(),
            "ERROR: Failed open to export gpio37 (CP9)\nERROR: Failed open to unexport gpio37 (CP9)\n");
  make_gpio_tree({});
  root.fail_call("write", {.match = "/sys/class/gpio/export", .error = EBUSY});
  root.fail_call("write", {.match = "/sys/class/gpio/unexport", .error = EINVAL});
  EXPECT_EQ(gpiolib_export(cp9, false), 0);
  EXPECT_EQ(gpiolib_unexport(cp9, false), 0);
  EXPECT_EQ(root.printed(),
            "ERROR: Failed write to export gpio37 (CP9)\nERROR: Failed write to unexport gpio37 (CP9)\n");
  EXPECT_EQ(gpiolib_export(cp9, true), 0);
  EXPECT_EQ(gpiolib_unexport(cp9, true), 0);
  EXPECT_EQ(root.printed(), "");
}

// Two digits and the zero byte.
TEST_F(gpiolib_test, a_write_that_takes_all_but_the_zero_byte_has_failed) {
  make_gpio_tree({74});
  root.fail_call("write", {.match = "/sys/class/gpio/export", .error = 0, .result = 2});
  EXPECT_EQ(gpiolib_export(signal("FAULT_LED"), false), 0);
  EXPECT_EQ(root.printed(), "ERROR: Failed write to export gpio74 (FAULT_LED)\n");
  root.fail_call("write", {.match = "/value", .error = 0, .result = 1});
  EXPECT_EQ(gpiolib_set_state(signal("FAULT_LED"), 0), 0);
  EXPECT_EQ(root.printed(), "ERROR: Failed write to set gpio74 (FAULT_LED) value to '0'\n");
  root.fail_call("write", {.match = "/direction", .error = 0, .result = 3});
  EXPECT_EQ(gpiolib_set_direction(signal("FAULT_LED"), gpiolib_direction_out), 0);
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
  EXPECT_EQ(gpiolib_export(signal("RX2"), false), 1);
  EXPECT_EQ(root.sequence(), lines({to_gpio, "write /sys/class/gpio/export 3"}));
  root.forget();
  EXPECT_EQ(gpiolib_unexport(signal("RX2"), false), 1);
  EXPECT_EQ(root.sequence(), lines({"write /sys/class/gpio/unexport 3", to_uart}));
}

TEST_F(gpiolib_pin_test, failed_switch_before_the_export_is_always_told) {
  root.fail_ioctl(pin_mode, EBUSY, "/dev/ctrl");
  for (const bool quiet : {false, true}) {
    EXPECT_EQ(gpiolib_export(signal("RX2"), quiet), 0);
    EXPECT_EQ(root.printed(),
              "ERROR: pin 71 ioctl(VEXO_CTRL_IOCS_PIN_MODE) error=Device or resource busy\n"
              "ERROR: Failed to set pin mode to gpio for gpio71 (RX2)\n");
  }
  EXPECT_EQ(gpio_writes(), lines()) << "the line stays the peripheral's";
}

TEST_F(gpiolib_pin_test, failed_switch_after_the_return) {
  root.fail_ioctl(pin_mode, EBUSY, "/dev/ctrl");
  EXPECT_EQ(gpiolib_unexport(signal("RX2"), false), 0);
  EXPECT_EQ(root.printed(),
            "ERROR: pin 71 ioctl(VEXO_CTRL_IOCS_PIN_MODE) error=Device or resource busy\n"
            "ERROR: Failed to set pin mode to peripheral for gpio71 (RX2)\n");
  EXPECT_EQ(gpiolib_unexport(signal("RX2"), true), 0);
  EXPECT_EQ(root.printed(), "ERROR: pin 71 ioctl(VEXO_CTRL_IOCS_PIN_MODE) error=Device or resource busy\n");
}

TEST_F(gpiolib_pin_test, pin_is_not_switched_back_while_the_kernel_has_the_line) {
  root.fail_call("write", {.match = "unexport"});
  EXPECT_EQ(gpiolib_unexport(signal("RX2"), false), 0);
  EXPECT_EQ(root.events("ioctl").size(), 0U);
}

TEST_F(gpiolib_test, direction) {
  make_gpio_tree({74});
  EXPECT_EQ(gpiolib_set_direction(signal("FAULT_LED"), gpiolib_direction_in), 1);
  EXPECT_EQ(gpiolib_set_direction(signal("FAULT_LED"), gpiolib_direction_out), 1);
  EXPECT_EQ(gpio_writes(), lines({"gpio74/direction in", "gpio74/direction out"}));
  root.remove("/sys/class/gpio/gpio74/direction");
  EXPECT_EQ(gpiolib_set_direction(signal("FAULT_LED"), gpiolib_direction_in), 0);
  EXPECT_EQ(root.printed(), "ERROR: Failed open to set gpio74 (FAULT_LED) direction to 'in'\n");
}

TEST_F(gpiolib_test, state) {
  make_gpio_tree({74});
  EXPECT_EQ(gpiolib_set_state(signal("FAULT_LED"), 1), 1);
  EXPECT_EQ(gpiolib_set_state(signal("FAULT_LED"), 0), 1);
  EXPECT_EQ(gpio_writes(), lines({"gpio74/value 1", "gpio74/value 0"}));
  root.remove("/sys/class/gpio/gpio74/value");
  EXPECT_EQ(gpiolib_set_state(signal("FAULT_LED"), 1), 0);
  EXPECT_EQ(root.printed(), "ERROR: Failed open to set gpio74 (FAULT_LED) value to '1'\n");
}

TEST_F(gpiolib_test, read_state) {
  make_gpio_tree({74});
  const gpiolib_signal* led = signal("FAULT_LED");
  const char* const levels[] = {"0\n", "1\n", "-\n"};
  for (uint32_t i = 0; i < 3; i++) {
    root.write_file("/sys/class/gpio/gpio74/value", levels[i]);
    uint32_t state = 9;
    EXPECT_EQ(gpiolib_get_state(led, &state), 1);
    EXPECT_EQ(state, i);
  }
  EXPECT_EQ(root.events("read").at(0).text(), "read /sys/class/gpio/gpio74/value 1") << "one byte";
}

TEST_F(gpiolib_test, read_failures) {
  const gpiolib_signal* led = signal("FAULT_LED");
  uint32_t state = 9;
  EXPECT_EQ(gpiolib_get_state(led, &state), 0);
  EXPECT_EQ(root.printed(), "ERROR: Failed open to read gpio74 (FAULT_LED) value\n");
  make_gpio_tree({74});
  root.write_file("/sys/class/gpio/gpio74/value", "");
  EXPECT_EQ(gpiolib_get_state(led, &state), 0);
  EXPECT_EQ(root.printed(), "ERROR: Failed reading gpio74 (FAULT_LED) value\n");
  root.write_file("/sys/class/gpio/gpio74/value", "x\n");
  EXPECT_EQ(gpiolib_get_state(led, &state), 0);
  EXPECT_EQ(root.printed(), "");
  EXPECT_EQ(state, 9U);
}

TEST_F(gpiolib_test, set_by_text) {
  make_gpio_tree({74});
  for (const char* word : {"high", "low", "1", "0"})
    EXPECT_EQ(gpiolib_set_state_by_num_or_name("FAULT_LED", word), 1);
  EXPECT_EQ(gpiolib_set_state_by_num_or_name("74", "high"), 1);
  EXPECT_EQ(gpio_writes(), lines({"gpio74/value 1", "gpio74/value 0", "gpio74/value 1", "gpio74/value 0",
                                  "gpio74/value 1"}));
  EXPECT_EQ(root.printed(), "");
}

TEST_F(gpiolib_test, set_by_text_checks_signal_then_state_then_direction) {
  make_whole_gpio_tree();
  EXPECT_EQ(gpiolib_set_state_by_num_or_name("NOPE", "up"), 0);
  EXPECT_EQ(gpiolib_set_state_by_num_or_name("CP9", "up"), 0);
  EXPECT_EQ(gpiolib_set_state_by_num_or_name("CP9", "HIGH"), 0);
  EXPECT_EQ(gpiolib_set_state_by_num_or_name("CP9", "1"), 0);
  EXPECT_EQ(root.printed(),
            "ERROR: Invalid number or name 'NOPE'\n"
            "ERROR: Invalid state 'up'\n"
            "ERROR: Invalid state 'HIGH'\n"
            "ERROR: gpio37 (CP9) is not an output\n");
  EXPECT_EQ(gpio_writes(), lines());
}

// ---------------------------------------------------------------------------------------------- listing

const std::string heading =
    "num  dir lv signal name          description               source        pull part\n"
    "---- --- -- -------------------- ------------------------- ------------- ---- ----\n";

TEST_F(gpiolib_test, listing_of_one_signal) {
  make_gpio_tree({74, 37});
  root.write_file("/sys/class/gpio/gpio74/value", "1\n");
  gpiolib_print_info("FAULT_LED");
  EXPECT_EQ(root.printed(),
            heading + "74   out 1  FAULT_LED            Fault LED                 TK-10/J2-37   up   -   \n");
  gpiolib_print_info("37");
  EXPECT_EQ(root.printed(),
            heading + "37   in  0  CP9                  SW1 for WPS               TK-10/J2-42   up   -   \n");
}

TEST_F(gpiolib_test, listing_shows_a_dash_for_a_level_that_cannot_be_read) {
  gpiolib_print_info("HOSTA_EN");
  EXPECT_EQ(root.printed(),
            heading +
                "ERROR: Failed open to read gpio143 (HOSTA_EN) value\n"
                "143  out -  HOSTA_EN             USB Host A enable         I2C-0x59/O15  none -   \n");
}

TEST_F(gpiolib_test, listing_of_no_signal) {
  gpiolib_print_info("NOPE");
  EXPECT_EQ(root.printed(), "ERROR: Invalid number or name 'NOPE'\n");
}

TEST_F(gpiolib_test, listing_of_a_board_without_table) {
  use_board(opmode_board_tk10_eval);
  gpiolib_print_info(nullptr);
  EXPECT_EQ(root.printed(), heading);
}

TEST_F(gpiolib_pin_test, listing_of_the_fixture) {
  root.write_file("/sys/class/gpio/gpio36/value", "1\n");
  gpiolib_print_info(nullptr);
  const std::string printed = root.printed();
  EXPECT_TRUE(printed.starts_with(
      heading +
      "-1   in  -  NRESETIN             Test fixture SW2          TK-10/J1-2    none -   \n"
      "36   in  1  CP8                  Test fixture JP13.16      TK-10/J1-38   up   97  \n"
      "37   in  0  CP9                  Test fixture JP13.18      TK-10/J1-42   up   74  \n"
      "55   -   -  I2CSDA               Test fixture JP1.3        TK-10/J1-33   up   66  \n"))
      << printed;
  EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), 27);
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
  gpiolib_set_state(led, 1);
  uint32_t state;
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
