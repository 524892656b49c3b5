// The line drivers of the tk20, where no command leads: ports and boards without signals.
#include "console/line_driver.h"

#include "model_test.h"

namespace {

class line_driver_test : public model_test {
 protected:
  static tty_port port_of(int32_t number, tty_modes mode, bool terminated = false) {
    tty_port port = tty_cli;
    port.port = number;
    port.mode = mode;
    port.termination = terminated;
    return port;
  }
};

TEST_F(line_driver_test, ports_without_signals) {
  g_opmode_board = opmode_board_tk20;
  for (const int32_t number : {3, -1, 12}) {
    EXPECT_FALSE(tty_configure_mode(port_of(number, tty_mode_rs232)));
    EXPECT_EQ(root.printed(), "ERROR: Unable to get gpiolib's for tty mode\n");
  }
  EXPECT_EQ(root.sequence(), lines());
}

TEST_F(line_driver_test, table_without_the_signals) {
  g_opmode_board = opmode_board_tk20;
  gpiolib_current = gpiolib_tk10_mfg;
  gpiolib_current_size = gpiolib_tk10_mfg_size;
  EXPECT_FALSE(tty_configure_mode(port_of(1, tty_mode_rs232)));
  EXPECT_EQ(root.printed(), "ERROR: Unable to get gpiolib's for tty mode\n");
}

// One of the five is enough.
TEST_F(line_driver_test, last_signal_missing) {
  g_opmode_board = opmode_board_tk20;
  gpiolib_current_size = gpiolib_table_index(gpiolib_lookup_num_or_name_string("TX_2W_TE1"));
  make_whole_gpio_tree();
  EXPECT_FALSE(tty_configure_mode(port_of(1, tty_mode_rs232)));
  EXPECT_EQ(root.printed(), "ERROR: Unable to get gpiolib's for tty mode\n");
  EXPECT_EQ(gpio_writes(), lines()) << "nothing is driven by halves";
}

TEST_F(line_driver_test, termination_does_not_count_in_rs232) {
  const serial_port line(1);
  root.set_input(line);
  make_whole_gpio_tree();
  g_opmode_board = opmode_board_tk20;
  EXPECT_TRUE(tty_configure_mode(port_of(1, tty_mode_rs232, true)));
  EXPECT_EQ(gpio_writes(), lines({"gpio136/value 1", "gpio137/value 1", "gpio138/value 1", "gpio141/value 0",
                                  "gpio140/value 0"}));
  EXPECT_EQ(root.events("ioctl").at(0).fields[2], std::string(64, '0'));
}

TEST_F(line_driver_test, verbose_names_the_port) {
  g_opmode_board = opmode_board_tk20;
  log_level = level_verbose;
  tty_configure_mode(port_of(7, tty_mode_rs232));
  EXPECT_EQ(root.printed(),
            "VERBOSE: tty_configure_mode: port=7\nERROR: Unable to get gpiolib's for tty mode\n");
}

}  // namespace
