// Serial ports: raw settings to the bit, restoring them, receiving a file, what modes are possible where.
#include "tty/port.h"
#include "console/console.h"

#include <sys/stat.h>

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

class tty_open_raw_test : public tty_port_test {
 protected:
  // The flags that the last tcsetattr asked for, by their place in the log: 2 input, 3 output, 4 control, 5
  // local.
  tcflag_t asked(size_t field) const {
    return static_cast<tcflag_t>(std::stoul(root.events("tcsetattr").back().fields[field], nullptr, 8));
  }
};

TEST_F(tty_open_raw_test, settings_are_raw_to_the_bit) {
  const serial_port line(1);
  tty_port port = port_of(1, 57600);
  ASSERT_EQ(tty_open_raw(&port), 1);
  EXPECT_GE(port.fd, 0);
  EXPECT_EQ(asked(2), static_cast<tcflag_t>(IGNPAR));
  EXPECT_EQ(asked(3), 0U);
  EXPECT_EQ(asked(4), static_cast<tcflag_t>(B57600 | CS8 | CREAD | CLOCAL | CRTSCTS));
  EXPECT_EQ(asked(5), 0U);
  std::string special(NCCS, '\0');
  special[VMIN] = 1;
  EXPECT_EQ(root.events("tcsetattr").back().fields[6], hex(special));
  EXPECT_EQ(root.events("tcsetattr").back().fields[1], "now");
  EXPECT_EQ(port.applied_termios.c_cflag, asked(4));
  EXPECT_EQ(port.applied_termios.c_cc[VMIN], 1);
  tty_close_raw(&port);
  EXPECT_EQ(root.printed(), "");
}

TEST_F(tty_open_raw_test, every_speed_sets_its_constant) {
  const serial_port line(2);
  for (const uint32_t bps : {9600U, 19200U, 38400U, 57600U, 115200U, 230400U, 460800U, 921600U}) {
    tty_port port = port_of(2, bps);
    ASSERT_EQ(tty_open_raw(&port), 1) << bps;
    speed_t constant = 0;
    EXPECT_TRUE(tty_speed_constant(bps, &constant));
    EXPECT_EQ(asked(4), constant | CS8 | CREAD | CLOCAL | CRTSCTS) << bps;
    tty_close_raw(&port);
  }
}

TEST_F(tty_open_raw_test, the_port_number_not_the_record_decides_hardware_flow) {
  for (const int number : {0, 1, 2}) {
    const serial_port line(number);
    for (const tty_flows flow : {tty_flow_none, tty_flow_hw}) {
      tty_port port = port_of(number);
      port.flow = flow;
      ASSERT_EQ(tty_open_raw(&port), 1);
      EXPECT_EQ((asked(4) & CRTSCTS) != 0, number != 0) << number << " " << flow;
      tty_close_raw(&port);
    }
  }
}

TEST_F(tty_open_raw_test, opens_without_a_controlling_terminal_and_discards_input_before_it_applies) {
  const serial_port line(1);
  tty_port port = port_of(1);
  root.forget();
  ASSERT_EQ(tty_open_raw(&port), 1);
  const std::vector<device_event> opens = root.events("open");
  ASSERT_EQ(opens.size(), 1U);
  char flags[16];
  snprintf(flags, sizeof flags, "%#o", static_cast<unsigned>(O_RDWR | O_NOCTTY));
  EXPECT_EQ(opens[0].fields, lines({"/dev/ttyS1", flags, "0"}));
  lines order;
  for (const device_event& event : root.events())
    order.push_back(event.kind);
  EXPECT_EQ(order, lines({"open", "tcflush", "tcsetattr"}));
  EXPECT_EQ(root.events("tcflush")[0].fields[1], "input");
  tty_close_raw(&port);
}

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

TEST_F(tty_open_raw_test, a_port_that_is_not_there_is_reported) {
  tty_port port = port_of(1);
  EXPECT_EQ(tty_open_raw(&port), 0);
  EXPECT_EQ(root.printed(), "tty_open_raw: open(): No such file or directory\n");
  EXPECT_EQ(port.fd, -1);
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

  // The stand-in lets time pass at once after `waits` good ones.
  void fall_silent_after(long waits) { root.fail_call("select", {.error = 0, .result = 0, .after = waits}); }

  const serial_port line{1};
};

constexpr char path[] = "/tmp/file";

// Pending input is discarded when the port is opened, so the sender starts while the port is being waited
// for. A FIFO in the place of the terminal keeps what was sent before.
class tty_download_of_bytes_test : public tty_port_test {
 protected:
  tty_download_of_bytes_test() {
    EXPECT_EQ(mkfifo("/dev/ttyS2", 0600), 0);
    fifo_ = open("/dev/ttyS2", O_RDWR | O_CLOEXEC);
    EXPECT_GE(fcntl(fifo_, F_SETPIPE_SZ, 1 << 20), 1 << 20);
    descriptors_ = open_descriptors();
    root.forget();
  }
  ~tty_download_of_bytes_test() override { close(fifo_); }

  void send(const std::string& bytes) const {
    EXPECT_EQ(write(fifo_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  void fall_silent_after(long waits) { root.fail_call("select", {.error = 0, .result = 0, .after = waits}); }

  tty_port port = port_of(2);

 private:
  int fifo_;
};

TEST_F(tty_download_of_bytes_test, everything_up_to_the_silence_is_the_file) {
  const std::string bytes = noise(3 * 4096 + 5);
  send(bytes);
  fall_silent_after(4);
  root.trace("select");
  EXPECT_EQ(tty_download(&port, path), 1);
  EXPECT_EQ(root.read_file(path), bytes);
  EXPECT_EQ(port.fd, -1);
  EXPECT_EQ(root.printed(), "Begin serial download...\n");
  EXPECT_EQ(root.sequence(), lines({"sleep 1", "select 30", "select 3", "select 3", "select 3", "select 3"}));
}

TEST_F(tty_download_of_bytes_test, a_single_byte_is_a_file) {
  send(std::string(1, '\0'));
  fall_silent_after(1);
  EXPECT_EQ(tty_download(&port, path), 1);
  EXPECT_EQ(root.read_file(path), std::string(1, '\0'));
}

TEST_F(tty_download_of_bytes_test, file_and_count_are_told_at_verbosity_four) {
  send("12345");
  fall_silent_after(1);
  log_level = 4;
  EXPECT_EQ(tty_download(&port, path), 1);
  EXPECT_EQ(root.printed(),
            "INFO: tty_download: dev=/dev/ttyS2 file=/tmp/file\nBegin serial download...\n"
            "INFO: Downloaded 5 bytes\n");
}

TEST_F(tty_download_of_bytes_test, a_sender_that_never_starts_gives_nothing) {
  fall_silent_after(0);
  root.trace("select");
  log_level = 4;
  EXPECT_EQ(tty_download(&port, path), 0);
  EXPECT_TRUE(root.printed().ends_with("Begin serial download...\nINFO: Downloaded 0 bytes\n"));
  EXPECT_EQ(root.sequence(), lines({"sleep 1", "select 30"}));
  EXPECT_EQ(root.read_file(path), "") << "the empty file is the caller's";
  EXPECT_EQ(port.fd, -1);
}

TEST_F(tty_download_of_bytes_test, a_failed_wait_or_read_ends_it_like_silence) {
  send("12345");
  root.fail_call("select", {.error = EINTR, .after = 1, .times = 1});
  EXPECT_EQ(tty_download(&port, path), 1);
  EXPECT_EQ(root.read_file(path), "12345");
  root.fail_call("select", {.error = EINTR, .times = 1});
  EXPECT_EQ(tty_download(&port, path), 0);
  send("12345");
  root.fail_call("read", {.match = "/dev/ttyS2", .error = EIO, .times = 1});
  EXPECT_EQ(tty_download(&port, path), 0);
  EXPECT_EQ(root.printed(), "Begin serial download...\nBegin serial download...\nBegin serial download...\n");
}

TEST_F(tty_download_of_bytes_test, a_failed_write_to_the_file_is_reported_after_the_port_is_closed) {
  send("12345");
  root.fail_call("fwrite", {.match = path, .error = ENOSPC, .result = 0});
  log_level = 6;
  EXPECT_EQ(tty_download(&port, path), 0);
  EXPECT_TRUE(
      root.printed().ends_with("VERBOSE: tty_close_raw: dev=/dev/ttyS2\nINFO: Downloaded 0 bytes\n"
                               "ERROR: fwrite(5) error(No space left on device)\n"));
}

TEST_F(tty_download_of_bytes_test, a_file_that_cannot_be_created_is_reported) {
  EXPECT_EQ(tty_download(&port, "/nowhere/file"), 0);
  EXPECT_EQ(root.printed(),
            "Begin serial download...\nERROR: fopen(/nowhere/file) error(No such file or directory)\n");
  EXPECT_EQ(port.fd, -1);
}

TEST_F(tty_download_of_bytes_test, no_memory_is_reported_and_the_port_left_alone) {
  root.fail_call("malloc", {.match = "4096", .error = ENOMEM});
  EXPECT_EQ(tty_download(&port, path), 0);
  root.drop_rules();
  EXPECT_EQ(root.printed(), "Begin serial download...\nERROR: malloc(4096) error(Cannot allocate memory)\n");
  EXPECT_EQ(root.events("open").size(), 0U);
}

TEST_F(tty_download_test, a_port_that_is_not_there_is_reported_twice) {
  tty_port port = port_of(2);
  EXPECT_EQ(tty_download(&port, path), 0);
  EXPECT_EQ(root.printed(),
            "Begin serial download...\ntty_open_raw: open(): No such file or directory\n"
            "ERROR: tty_open_raw() error(No such file or directory)\n");
  EXPECT_FALSE(root.exists(path));
}

// The copied record still holds the console's descriptor, and the console opens its input again.
TEST_F(tty_download_test, a_failed_open_closes_the_descriptor_that_the_record_had) {
  tty_port port = port_of(2);
  port.fd = fcntl(line.device_fd(), F_DUPFD_CLOEXEC, 100);
  const int had = port.fd;
  EXPECT_EQ(tty_download(&port, path), 0);
  EXPECT_EQ(port.fd, -1);
  EXPECT_EQ(fcntl(had, F_GETFD), -1);
}

TEST_F(tty_download_test, the_ports_settings_are_restored) {
  termios before = line.settings();
  before.c_lflag = ECHO | ICANON;
  line.set_settings(before);
  tty_port port = port_of(1);
  fall_silent_after(0);
  EXPECT_EQ(tty_download(&port, path), 0);
  EXPECT_EQ(line.settings().c_lflag, before.c_lflag);
}

// ------------------------------------------------------------------------------------------------ validation

TEST_F(tty_port_test, rs232_is_possible_everywhere) {
  for (g_opmode_board = 0; g_opmode_board < opmode_board_count; g_opmode_board++) {
    for (const int number : {0, 1, 2}) {
      const tty_port port = port_of(number);
      EXPECT_EQ(tty_validate_settings(&port), 1);
    }
  }
  EXPECT_EQ(root.printed(), "");
}

TEST_F(tty_port_test, other_modes_are_never_possible_on_port_zero) {
  for (g_opmode_board = 0; g_opmode_board < opmode_board_count; g_opmode_board++) {
    tty_port port = port_of(0);
    port.mode = tty_mode_rs485;
    EXPECT_EQ(tty_validate_settings(&port), 0);
    port.mode = tty_mode_rs422;
    EXPECT_EQ(tty_validate_settings(&port), 0);
    EXPECT_EQ(root.printed(), "ERROR: rs485 not valid on /dev/ttyS0\nERROR: rs422 not valid on /dev/ttyS0\n");
  }
}

TEST_F(tty_port_test, other_modes_are_possible_on_the_board_with_line_drivers_only) {
  for (const int number : {1, 2}) {
    for (const tty_modes mode : {tty_mode_rs485, tty_mode_rs422}) {
      tty_port port = port_of(number);
      port.mode = mode;
      for (g_opmode_board = 0; g_opmode_board < opmode_board_count; g_opmode_board++) {
        const std::string board = opmode_board_names[g_opmode_board];
        EXPECT_EQ(tty_validate_settings(&port), board == "tk20");
        EXPECT_EQ(root.printed(), board == "tk20"
                                      ? ""
                                      : std::string("ERROR: ") + tty_mode_names[mode] +
                                            " not valid in current operational mode (" + board + ")\n");
      }
    }
  }
}

TEST_F(tty_port_test, speed_flow_and_termination_are_not_looked_at) {
  tty_port port = port_of(1, 1);
  port.flow = static_cast<tty_flows>(99);
  port.termination = 1;
  EXPECT_EQ(tty_validate_settings(&port), 1);
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

TEST_F(tty_port_test, switching_signals_answers_what_setting_the_attributes_did) {
  EXPECT_EQ(tty_set_isig(0), -1) << "standard input is no terminal here";
}

}  // namespace
