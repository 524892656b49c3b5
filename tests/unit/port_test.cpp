// Serial ports: raw settings to the bit, restoring them, receiving a file, what modes are possible where.
#include "tty/port.h"
#include "console/console.h"

#include <pthread.h>
#include <sys/stat.h>

#include <csignal>
#include <thread>

#include "loader_test.h"

namespace {

// ---------------------------------------------------------------------------------------------------- tables

TEST(tty_speed_test, eight_speeds_are_valid) {
  constexpr struct {
    uint32_t bps;
    speed_t constant;
  } speeds[] = {{9600, B9600},     {19200, B19200},   {38400, B38400},   {57600, B57600},
                {115200, B115200}, {230400, B230400}, {460800, B460800}, {921600, B921600}};
  for (const auto& row : speeds) {
    speed_t constant = 0;
    EXPECT_EQ(tty_speed_is_valid(row.bps), 1) << row.bps;
    EXPECT_TRUE(tty_speed_constant(row.bps, &constant));
    EXPECT_EQ(constant, row.constant) << row.bps;
  }
}

TEST(tty_speed_test, no_other_number_is) {
  for (const uint32_t bps : {0U, 1U, 300U, 1200U, 2400U, 4800U, 9599U, 9601U, 14400U, 115201U, 500000U,
                             1000000U, 921601U, 1843200U, 0xFFFFFFFFU}) {
    EXPECT_EQ(tty_speed_is_valid(bps), 0) << bps;
  }
}

class tty_port_test : public loader_test {
 protected:
  static tty_port port_of(int number, uint32_t speed = 115200) {
    tty_port port = tty_cli;
    port.port = number;
    port.speed = speed;
    return port;
  }
};

TEST_F(tty_port_test, the_console_record_starts_with_the_defaults) {
  EXPECT_EQ(tty_cli.fd, -1);
  EXPECT_STREQ(tty_cli.device, "/dev/ttyS");
  EXPECT_EQ(tty_cli.port, 1);
  EXPECT_EQ(tty_cli.speed, 115200U);
  EXPECT_STREQ(tty_mode_names[tty_cli.mode], "rs232");
  EXPECT_STREQ(tty_flow_names[tty_cli.flow], "hwflow");
  EXPECT_EQ(tty_cli.termination, 0);
}

TEST_F(tty_port_test, modes_and_flows_have_their_names) {
  EXPECT_EQ(lines(tty_mode_names, tty_mode_names + 3), lines({"rs232", "rs485", "rs422"}));
  EXPECT_EQ(lines(tty_flow_names, tty_flow_names + 2), lines({"noflow", "hwflow"}));
}

// ---------------------------------------------------------------------------------------- raw open and close

class tty_open_raw_test : public tty_port_test {};

TEST_F(tty_open_raw_test, close_restores_what_the_port_had) {
  const serial_port line(1);
  termios before = line.settings();
  before.c_lflag = ECHO | ICANON;
  before.c_iflag = ICRNL;
  line.set_settings(before);
  tty_port port = port_of(1);
  ASSERT_EQ(tty_open_raw(&port), 1);
  EXPECT_EQ(line.settings().c_lflag, 0U);
  EXPECT_EQ(port.saved_termios.c_lflag, before.c_lflag);
  tty_close_raw(&port);
  EXPECT_EQ(port.fd, -1);
  EXPECT_EQ(line.settings().c_lflag, before.c_lflag);
  EXPECT_EQ(line.settings().c_iflag, before.c_iflag);
}

TEST_F(tty_open_raw_test, opening_and_closing_are_told_at_verbosity_six) {
  const serial_port line(1);
  tty_port port = port_of(1);
  log_level = 6;
  ASSERT_EQ(tty_open_raw(&port), 1);
  EXPECT_EQ(root.printed(), "VERBOSE: tty_open_raw: dev=/dev/ttyS1 speed=115200\n");
  tty_close_raw(&port);
  EXPECT_EQ(root.printed(), "VERBOSE: tty_close_raw: dev=/dev/ttyS1\n");
  tty_close_raw(&port);
  EXPECT_EQ(root.printed(), "VERBOSE: tty_close_raw: dev=/dev/ttyS1\n") << "a closed port is told, too";
  EXPECT_EQ(root.events("tcsetattr").size(), 2U) << "but not touched";
}

TEST_F(tty_open_raw_test, an_unknown_speed_leaves_the_descriptor_open_and_the_saved_settings_read) {
  const serial_port line(1);
  termios before = line.settings();
  before.c_lflag = ECHO;
  line.set_settings(before);
  tty_port port = port_of(1, 4800);
  port.fd = -7;
  root.forget();
  EXPECT_EQ(tty_open_raw(&port), 0);
  EXPECT_TRUE(root.printed().starts_with("tty_open_raw: speed: "));
  EXPECT_EQ(port.fd, -7) << "not stored";
  EXPECT_EQ(port.saved_termios.c_lflag, static_cast<tcflag_t>(ECHO)) << "overwritten already";
  EXPECT_EQ(root.events("tcsetattr").size(), 0U);
  EXPECT_EQ(root.events("tcflush").size(), 0U);
  descriptors_++;
}

TEST_F(tty_open_raw_test, settings_that_cannot_be_applied_go_unnoticed) {
  const serial_port line(1);
  tty_port port = port_of(1);
  root.fail_call("tcsetattr", {.match = "", .error = EIO, .times = 1});
  EXPECT_EQ(tty_open_raw(&port), 1);
  EXPECT_GE(port.fd, 0);
  tty_close_raw(&port);
}

// -------------------------------------------------------------------------------------------------- download

class tty_download_test : public tty_port_test {
 protected:
  tty_download_test() { descriptors_ = open_descriptors(); }

  const serial_port line{1};
};

constexpr char path[] = "/tmp/file";

// The copied record still holds the console's descriptor, and the console opens its input again.
TEST_F(tty_download_test, a_failed_open_closes_the_descriptor_that_the_record_had) {
  tty_port port = port_of(2);
  port.fd = fcntl(line.device_fd(), F_DUPFD_CLOEXEC, 100);
  const int had = port.fd;
  EXPECT_EQ(tty_download(&port, path), 0);
  EXPECT_EQ(port.fd, -1);
  EXPECT_EQ(fcntl(had, F_GETFD), -1);
}

TEST_F(tty_download_test, a_failed_open_closes_descriptor_0_too) {
  tty_port port = port_of(2);
  port.fd = STDIN_FILENO;
  tty_cli = port_of(0);  // which is gone, too
  tty_cli.fd = STDIN_FILENO;
  EXPECT_EQ(tty_download(&port, path), 0);
  EXPECT_EQ(port.fd, -1);
  EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1);
  root.set_input("");
}

// --------------------------------------------------------------------------------------------------- console

TEST_F(tty_port_test, flushing_discards_input_of_the_console_and_always_succeeds) {
  const serial_port line(1);
  tty_cli.fd = line.device_fd();
  EXPECT_EQ(tty_flush_cli_input(), 1);
  ASSERT_EQ(root.events("tcflush").size(), 1U);
  EXPECT_EQ(root.events("tcflush")[0].fields[1], "input");
  tty_cli.fd = -1;
  EXPECT_EQ(tty_flush_cli_input(), 1);
}

TEST_F(tty_port_test, signals_are_switched_at_once_and_nothing_else_changes) {
  const serial_port line(1);
  termios before = line.settings();
  before.c_lflag = ECHO | ISIG;
  line.set_settings(before);
  root.set_input(line);
  EXPECT_EQ(tty_set_isig(0), 0);
  EXPECT_EQ(line.settings().c_lflag, static_cast<tcflag_t>(ECHO));
  EXPECT_EQ(tty_set_isig(1), 0);
  EXPECT_EQ(line.settings().c_lflag, static_cast<tcflag_t>(ECHO | ISIG));
  EXPECT_EQ(tty_set_isig(7), 0);
  EXPECT_EQ(root.events("tcsetattr").back().fields[1], "now");
  EXPECT_EQ(line.settings().c_iflag, before.c_iflag);
}

TEST_F(tty_port_test, signals_stay_as_they_are_when_the_settings_cannot_be_read) {
  const serial_port line(1);
  root.set_input(line);
  root.fail_call("tcgetattr", {.times = 1});
  EXPECT_EQ(tty_set_isig(0), -1);
  EXPECT_EQ(root.events("tcsetattr").size(), 0U) << "zeroes would be speed 0";
}

TEST_F(tty_port_test, settings_that_were_never_read_are_not_given_back) {
  const serial_port line(1);
  tty_port port = port_of(1);
  port.saved_termios = line.settings();  // of another port, in a record that was copied
  root.fail_call("tcgetattr", {.times = 1});
  EXPECT_TRUE(tty_open_raw(&port));
  const termios raw = line.settings();
  tty_close_raw(&port);
  EXPECT_EQ(line.settings().c_cflag, raw.c_cflag);
  EXPECT_EQ(root.events("tcsetattr").size(), 1U);
}

// A console that another process made so that it does not wait.
TEST_F(tty_port_test, a_byte_of_the_console_is_waited_for) {
  const serial_port line(1);
  root.set_input(line);
  fcntl(STDIN_FILENO, F_SETFL, O_RDWR | O_NONBLOCK);
  std::thread sender([&line] {
    usleep(100000);
    line.send("a\n");
  });
  EXPECT_EQ(tty_read_cli_byte(), 'a');
  sender.join();
}

// A signal that a handler takes interrupts the wait.
volatile sig_atomic_t signals_taken;

TEST_F(tty_port_test, a_signal_is_no_end_of_input) {
  const serial_port line(1);
  root.set_input(line);
  struct sigaction action = {};
  struct sigaction previous;
  action.sa_handler = [](int) { signals_taken = signals_taken + 1; };
  sigaction(SIGUSR1, &action, &previous);
  signals_taken = 0;
  std::thread sender([&line, reader = pthread_self()] {
    while (signals_taken < 20) {
      pthread_kill(reader, SIGUSR1);
      usleep(1000);
    }
    line.send("a\n");
  });
  EXPECT_EQ(tty_read_cli_byte(), 'a');
  sender.join();
  sigaction(SIGUSR1, &previous, nullptr);
}

TEST_F(tty_port_test, behind_the_end_of_input_reading_goes_on) {
  root.set_input("a");
  EXPECT_EQ(tty_read_cli_byte(), 'a');
  EXPECT_EQ(tty_read_cli_byte(), EOF);
  root.set_input("b");
  EXPECT_EQ(tty_read_cli_byte(), 'b');
}

TEST_F(tty_port_test, switching_signals_answers_what_setting_the_attributes_did) {
  EXPECT_EQ(tty_set_isig(0), -1) << "standard input is no terminal here";
}

}  // namespace
