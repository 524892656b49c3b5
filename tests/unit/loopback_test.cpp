// The loopback test of a serial line: with a plug, and through a second port, over a wire between the two
// that loses, changes or adds bytes.
#include "tty/loopback.h"

#include <poll.h>

#include <atomic>
#include <functional>
#include <thread>

#include "loader_test.h"

namespace {

// The pattern that is sent.
std::string pattern(size_t size) {
  std::string bytes(size, '\0');
  for (size_t i = 0; i < size; i++)
    bytes[i] = static_cast<char>(i);
  return bytes;
}

// A wire from one port to another (a plug, when both are the same): carries all bytes through `change`, which
// gets them in order, with the count of those before.
class wire {
 public:
  using changer = std::function<std::string(const std::string& bytes, size_t before)>;

  wire(
      const serial_port& from, const serial_port& to,
      changer change = [](const std::string& bytes, size_t) { return bytes; })
      : from_(from), to_(to), change_(std::move(change)), thread_([this] { carry(); }) {}
  ~wire() {
    stop_ = true;
    thread_.join();
  }
  wire(const wire&) = delete;
  wire& operator=(const wire&) = delete;

 private:
  // Holds what a slow reader has not taken yet, for a writer that waits reads nothing: as on a real wire, it
  // never blocks. What nobody takes any more is lost when the wire goes.
  void carry() {
    size_t before = 0;
    std::string held;
    while (!stop_) {
      const std::string bytes = from_.received(held.empty() ? 5 : 0);
      if (!bytes.empty()) {
        held += change_(bytes, before);
        before += bytes.size();
      }
      held.erase(0, to_.offer(held, 5));
    }
  }

  const serial_port& from_;
  const serial_port& to_;
  changer change_;
  std::atomic<bool> stop_ = false;
  std::thread thread_;
};

// Loses the byte of that number.
wire::changer losing(size_t lost) {
  return [lost](const std::string& bytes, size_t before) {
    std::string rest = bytes;
    if (lost >= before && lost < before + bytes.size()) rest.erase(lost - before, 1);
    return rest;
  };
}

class loopback_test : public loader_test {
 protected:
  loopback_test() {
    descriptors_ = open_descriptors();  // the lines are the test's own
    local_.port = 1;
    remote_.port = 2;
    for (tty_port* port : {&local_, &remote_}) {
      port->fd = -1;
      port->device = "/dev/ttyS";
      port->speed = 115200;
    }
  }

  static std::string begin(size_t size) {
    return "Testing loopback of " + std::to_string(size) + " bytes at 115200 bps...\n";
  }
  static std::string counts(size_t sent, size_t received) {
    return "ERROR: sent " + std::to_string(sent) + " bytes, received " + std::to_string(received) +
           " bytes\n";
  }
  static std::string mismatch(unsigned index, unsigned expected, unsigned received) {
    char text[100];
    snprintf(text, sizeof text, "ERROR: Data mismatch: index=%u, expected=0x%02x, received=0x%02x\n", index,
             expected, received);
    return text;
  }

  tty_port local_ = {};
  tty_port remote_ = {};
  serial_port line_1_{1};
  serial_port line_2_{2};
};

// ---------------------------------------------------------------------------------------------------- a plug

TEST_F(loopback_test, plug_that_returns_everything) {
  const wire plug(line_1_, line_1_);
  for (const int32_t size : {1, 255, 256, 257, 300}) {
    EXPECT_EQ(tty_test_loopback(size, &local_, nullptr), 1) << size;
    EXPECT_EQ(root.printed(), begin(static_cast<size_t>(size)));
    EXPECT_EQ(local_.fd, -1);
  }
}

TEST_F(loopback_test, a_plug_needs_no_room_for_an_echo) {
  const wire plug(line_1_, line_1_);
  root.fail_call("malloc", {.match = "1", .error = ENOMEM, .result = 0});
  EXPECT_EQ(tty_test_loopback(300, &local_, nullptr), 1);
  EXPECT_EQ(root.printed(), begin(300));
}

TEST_F(loopback_test, more_than_the_line_holds_at_once) {
  const wire plug(line_1_, line_1_);
  EXPECT_EQ(tty_test_loopback(100000, &local_, nullptr), 1);
  EXPECT_EQ(root.printed(), begin(100000));
}

TEST_F(loopback_test, plug_that_returns_nothing) {
  root.trace("select");
  EXPECT_EQ(tty_test_loopback(300, &local_, nullptr), 0);
  EXPECT_EQ(root.printed(), begin(300) + counts(300, 0) + mismatch(0, 0x00, 0xFF));
  const lines steps = root.sequence();
  EXPECT_EQ(steps, lines({"sleep 1", "select 0", "select 2"}));
}

TEST_F(loopback_test, lost_byte_in_the_middle) {
  const wire plug(line_1_, line_1_, losing(100));
  EXPECT_EQ(tty_test_loopback(300, &local_, nullptr), 0);
  EXPECT_EQ(root.printed(), begin(300) + counts(300, 299) + mismatch(100, 100, 101));
}

TEST_F(loopback_test, lost_last_byte) {
  const wire plug(line_1_, line_1_, losing(299));
  EXPECT_EQ(tty_test_loopback(300, &local_, nullptr), 0);
  EXPECT_EQ(root.printed(), begin(300) + counts(300, 299) + mismatch(299, 299 % 256, 0xFF));
}

// Memory holds 0xFF before anything arrives.
TEST_F(loopback_test, lost_last_byte_that_is_0xff_is_only_told) {
  const wire plug(line_1_, line_1_, losing(255));
  EXPECT_EQ(tty_test_loopback(256, &local_, nullptr), 1);
  EXPECT_EQ(root.printed(), begin(256) + counts(256, 255));
}

TEST_F(loopback_test, changed_byte) {
  const wire plug(line_1_, line_1_, [](const std::string& bytes, size_t before) {
    std::string changed = bytes;
    if (before <= 7 && before + bytes.size() > 7) changed[7 - before] = '\x47';
    return changed;
  });
  EXPECT_EQ(tty_test_loopback(10, &local_, nullptr), 0);
  EXPECT_EQ(root.printed(), begin(10) + mismatch(7, 0x07, 0x47));
}

TEST_F(loopback_test, surplus_bytes_are_only_told) {
  const wire plug(line_1_, line_1_, [](const std::string& bytes, size_t before) {
    return before + bytes.size() == 20 ? bytes + "more" : bytes;
  });
  EXPECT_EQ(tty_test_loopback(20, &local_, nullptr), 1);
  EXPECT_EQ(root.printed(), begin(20) + counts(20, 24));
}

TEST_F(loopback_test, line_that_talks_without_end_stops_at_twice_the_size) {
  const wire plug(line_1_, line_1_,
                  [](const std::string& bytes, size_t) { return bytes + std::string(100, 'x'); });
  root.trace("select");
  root.trace("/dev/ttyS1");
  EXPECT_EQ(tty_test_loopback(20, &local_, nullptr), 1);
  EXPECT_EQ(root.printed(), begin(20) + counts(20, 40));
  std::string last;
  for (const device_event& event : root.events())
    if (event.kind == "select" || event.kind == "read") last = event.kind;
  EXPECT_EQ(last, "read") << "it does not wait for a silence that never comes";
}

TEST_F(loopback_test, what_the_line_held_before_does_not_count) {
  termios quiet = line_1_.settings();
  cfmakeraw(&quiet);
  line_1_.set_settings(quiet);  // else the line echoes it, at any time
  line_1_.send("old");
  const wire plug(line_1_, line_1_);
  EXPECT_EQ(tty_test_loopback(50, &local_, nullptr), 1);
  EXPECT_EQ(root.printed(), begin(50));
}

TEST_F(loopback_test, settings_of_the_port_are_given_back) {
  const wire plug(line_1_, line_1_);
  const termios before = line_1_.settings();
  tty_test_loopback(5, &local_, nullptr);
  EXPECT_EQ(line_1_.settings().c_lflag, before.c_lflag);
  EXPECT_EQ(line_1_.settings().c_oflag, before.c_oflag);
  lines flushed;
  for (const device_event& event : root.events("tcflush"))
    flushed.push_back(event.fields[1]);
  EXPECT_EQ(flushed, lines({"input", "both"})) << "at the opening, and by the test";
}

// ------------------------------------------------------------------------------------------------- two ports

TEST_F(loopback_test, second_port_echoes) {
  const wire there(line_1_, line_2_);
  const wire back(line_2_, line_1_);
  EXPECT_EQ(tty_test_loopback(5000, &local_, &remote_), 1);
  EXPECT_EQ(root.printed(), begin(5000));
  EXPECT_EQ(local_.fd, -1);
  EXPECT_EQ(remote_.fd, -1);
}

TEST_F(loopback_test, loss_on_the_way_there) {
  const wire there(line_1_, line_2_, losing(10));
  const wire back(line_2_, line_1_);
  EXPECT_EQ(tty_test_loopback(300, &local_, &remote_), 0);
  EXPECT_EQ(root.printed(), begin(300) + counts(300, 299) + mismatch(10, 10, 11));
}

TEST_F(loopback_test, loss_on_the_way_back) {
  const wire there(line_1_, line_2_);
  const wire back(line_2_, line_1_, losing(20));
  EXPECT_EQ(tty_test_loopback(300, &local_, &remote_), 0);
  EXPECT_EQ(root.printed(), begin(300) + counts(300, 299) + mismatch(20, 20, 21));
}

TEST_F(loopback_test, second_port_without_a_wire) {
  EXPECT_EQ(tty_test_loopback(100, &local_, &remote_), 0);
  EXPECT_EQ(root.printed(), begin(100) + counts(100, 0) + mismatch(0, 0x00, 0xFF));
  EXPECT_EQ(line_2_.received(), "");
}

// The count of descriptors leaves out the higher one, which is the second port's.
TEST_F(loopback_test, only_the_lower_descriptor_is_drained) {
  root.set_sleep_scale(1);
  root.trace("/dev/ttyS");
  std::thread late([this] {
    while (root.events("tcflush").size() < 4)  // twice each: at the opening, and before the pause of a second
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    line_1_.send("local");
    line_2_.send("remote");
  });
  EXPECT_EQ(tty_test_loopback(10, &local_, &remote_), 0);
  late.join();
  lines steps;
  for (const device_event& event : root.events()) {
    if (event.kind == "read" || event.kind == "write") steps.push_back(event.text());
  }
  ASSERT_GE(steps.size(), 4U);
  EXPECT_EQ(steps[0], "read /dev/ttyS1 5");
  EXPECT_EQ(steps[1], "write /dev/ttyS1 10");
  EXPECT_EQ(steps[2], "read /dev/ttyS2 6");
  EXPECT_EQ(steps[3], "write /dev/ttyS2 6");
  EXPECT_EQ(steps.size(), 4U);
}

TEST_F(loopback_test, a_line_that_hung_up_is_not_drained_for_ever) {
  // Nothing is flushed, so that there is something to drain.
  root.fail_call("tcflush", {.match = "/dev/ttyS1"});
  root.fail_call("read", {.match = "/dev/ttyS1", .error = 0, .result = 0, .times = 1});
  termios silent = line_1_.settings();
  cfmakeraw(&silent);
  line_1_.set_settings(silent);  // no echo
  line_1_.send("local");
  const wire there(line_1_, line_2_);
  const wire back(line_2_, line_1_);
  EXPECT_EQ(tty_test_loopback(10, &local_, &remote_), 0);
  EXPECT_EQ(root.printed(), begin(10) + counts(10, 15) + mismatch(0, 0, 'l')) << "what it held comes first";
}

// -------------------------------------------------------------------------------------------------- messages

TEST_F(loopback_test, progress_tells_of_every_transfer) {
  const wire there(line_1_, line_2_);
  const wire back(line_2_, line_1_);
  log_level = level_progress;
  EXPECT_EQ(tty_test_loopback(3, &local_, &remote_), 1);
  EXPECT_EQ(root.printed(), begin(3) +
                                "PROGRESS: tty_test_loopback: sent 3 bytes on local /dev/ttyS1...\n"
                                "PROGRESS: tty_test_loopback: looped back 3 bytes on remote /dev/ttyS2...\n"
                                "PROGRESS: tty_test_loopback: received 3 bytes on local /dev/ttyS1...\n"
                                "INFO: tty_test_loopback: received total 3 bytes looped back\n");
}

TEST_F(loopback_test, verbose_shows_the_bytes) {
  const wire there(line_1_, line_2_);
  const wire back(line_2_, line_1_, losing(2));
  log_level = level_verbose;
  EXPECT_EQ(tty_test_loopback(3, &local_, &remote_), 0);
  EXPECT_EQ(root.printed(),
            begin(3) +
                "VERBOSE: tty_open_raw: dev=/dev/ttyS1 speed=115200\n"
                "VERBOSE: tty_open_raw: dev=/dev/ttyS2 speed=115200\n"
                "PROGRESS: tty_test_loopback: sent 3 bytes on local /dev/ttyS1...\n"
                "PROGRESS: tty_test_loopback: looped back 3 bytes on remote /dev/ttyS2...\n"
                "00 01 02 \n"
                "PROGRESS: tty_test_loopback: received 2 bytes on local /dev/ttyS1...\n"
                "00 01 \n"
                "INFO: tty_test_loopback: received total 2 bytes looped back\n" +
                counts(3, 2) + "00 01 \n" + mismatch(2, 2, 0xFF) +
                "VERBOSE: tty_close_raw: dev=/dev/ttyS1\nVERBOSE: tty_close_raw: dev=/dev/ttyS2\n");
}

TEST_F(loopback_test, trace_names_it_first) {
  root.fail_call("malloc", {.match = "5001", .error = ENOMEM, .result = 0});
  log_level = level_trace;
  tty_test_loopback(5001, &local_, nullptr);
  EXPECT_TRUE(root.printed().starts_with("TRACE: tty_test_loopback:\n" + begin(5001)));
}

// -------------------------------------------------------------------------------------------------- failures

TEST_F(loopback_test, no_memory_for_each_buffer) {
  const struct {
    const char* size;
    long after;
  } buffers[] = {{"5001", 0}, {"10002", 0}, {"5001", 1}};
  root.forget();  // how the test itself opened its ends
  for (const auto& buffer : buffers) {
    root.drop_rules();
    root.fail_call("malloc", {.match = buffer.size, .error = ENOMEM, .result = 0, .after = buffer.after});
    EXPECT_EQ(tty_test_loopback(5001, &local_, &remote_), 0);
    EXPECT_EQ(root.printed(), begin(5001) + "ERROR: tty_test_loopback: malloc(" + buffer.size + ")\n");
  }
  EXPECT_EQ(root.events("open").size(), 0U) << "no port is opened in vain";
}

TEST_F(loopback_test, local_port_missing) {
  local_.port = 3;
  root.forget();  // how the test itself opened its ends
  EXPECT_EQ(tty_test_loopback(10, &local_, &remote_), 0);
  EXPECT_EQ(root.printed(), begin(10) +
                                "tty_open_raw: open(): No such file or directory\n"
                                "ERROR: tty_test_loopback: tty_open_raw(/dev/ttyS3) error(No such file or "
                                "directory)\n");
  EXPECT_EQ(root.events("open").size(), 1U) << "the remote port is not tried";
}

TEST_F(loopback_test, remote_port_missing) {
  remote_.port = 3;
  EXPECT_EQ(tty_test_loopback(10, &local_, &remote_), 0);
  EXPECT_EQ(root.printed(), begin(10) +
                                "tty_open_raw: open(): No such file or directory\n"
                                "ERROR: tty_test_loopback: tty_open_raw(/dev/ttyS3) error(No such file or "
                                "directory)\n");
  EXPECT_EQ(local_.fd, -1) << "the local port is closed again";
}

// Also one that this did not open.
TEST_F(loopback_test, every_descriptor_that_is_there_is_closed) {
  local_.fd = fcntl(line_1_.device_fd(), F_DUPFD_CLOEXEC, 3);
  local_.saved_termios = line_1_.settings();
  local_.port = 3;
  EXPECT_EQ(tty_test_loopback(10, &local_, nullptr), 0);
  EXPECT_EQ(local_.fd, -1);
}

TEST_F(loopback_test, short_write) {
  root.fail_call("write", {.match = "/dev/ttyS1", .error = 0, .result = 9});
  EXPECT_EQ(tty_test_loopback(10, &local_, nullptr), 0);
  const std::string printed = root.printed();
  EXPECT_TRUE(
      printed.starts_with(begin(10) + "ERROR: tty_test_loopback: write(/dev/ttyS1) != write_len, error="))
      << printed;
  EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), 2) << "nothing is compared";
}

TEST_F(loopback_test, failed_write) {
  root.fail_call("write", {.match = "/dev/ttyS1"});
  EXPECT_EQ(tty_test_loopback(10, &local_, nullptr), 0);
  EXPECT_EQ(
      root.printed(),
      begin(10) + "ERROR: tty_test_loopback: write(/dev/ttyS1) != write_len, error=Input/output error\n");
}

// With nothing that takes the bytes, as when the other end holds its clear-to-send back.
TEST_F(loopback_test, line_that_nobody_empties) {
  local_.speed = 921600;
  EXPECT_FALSE(tty_test_loopback(100000, &local_, nullptr));
  EXPECT_EQ(root.printed(),
            "Testing loopback of 100000 bytes at 921600 bps...\n"
            "ERROR: tty_test_loopback: write(/dev/ttyS1) != write_len, error=Connection timed out\n");
  EXPECT_EQ(local_.fd, -1);
  struct sigaction action;
  sigaction(SIGALRM, nullptr, &action);
  EXPECT_EQ(action.sa_handler, SIG_DFL);
}

TEST_F(loopback_test, echo_that_nobody_takes) {
  local_.speed = 921600;
  remote_.speed = 921600;
  const wire there(line_1_, line_2_);
  EXPECT_FALSE(tty_test_loopback(100000, &local_, &remote_));
  EXPECT_TRUE(root.printed().ends_with(
      "ERROR: tty_test_loopback: write(/dev/ttyS2) != write_len, error=Connection timed out\n"));
}

TEST_F(loopback_test, failed_read_on_the_remote_port) {
  const wire there(line_1_, line_2_);
  root.fail_call("read", {.match = "/dev/ttyS2"});
  EXPECT_EQ(tty_test_loopback(10, &local_, &remote_), 0);
  EXPECT_EQ(root.printed(),
            begin(10) + "ERROR: tty_test_loopback: read(/dev/ttyS2) <= 0, error=Input/output error\n");
}

// A line that hung up is readable without end, and holds nothing.
TEST_F(loopback_test, nothing_to_read_ends_the_transfer) {
  for (tty_port* const hung_up : {&local_, &remote_}) {
    const std::string name = "/dev/ttyS" + std::to_string(hung_up->port);
    const wire there(line_1_, hung_up == &remote_ ? line_2_ : line_1_);
    root.fail_call("read", {.match = name, .error = 0, .result = 0});
    EXPECT_EQ(tty_test_loopback(10, &local_, hung_up == &remote_ ? &remote_ : nullptr), 0);
    const std::string printed = root.printed();
    EXPECT_TRUE(printed.starts_with(begin(10) + "ERROR: tty_test_loopback: read(" + name + ") <= 0, error="))
        << printed;
  }
}

TEST_F(loopback_test, short_echo) {
  const wire there(line_1_, line_2_);
  root.fail_call("write", {.match = "/dev/ttyS2", .error = 0, .result = 3});
  EXPECT_EQ(tty_test_loopback(10, &local_, &remote_), 0);
  const std::string printed = root.printed();
  EXPECT_TRUE(
      printed.starts_with(begin(10) + "ERROR: tty_test_loopback: write(/dev/ttyS2) != write_len, error="))
      << printed;
}

TEST_F(loopback_test, failed_read_on_the_local_port) {
  const wire plug(line_1_, line_1_);
  root.fail_call("read", {.match = "/dev/ttyS1"});
  EXPECT_EQ(tty_test_loopback(10, &local_, nullptr), 0);
  EXPECT_EQ(root.printed(),
            begin(10) + "ERROR: tty_test_loopback: read(/dev/ttyS1) <= 0, error=Input/output error\n");
  EXPECT_EQ(local_.fd, -1);
}

TEST_F(loopback_test, failed_wait_ends_the_transfer) {
  root.fail_call("select", {.error = EBADF});
  EXPECT_EQ(tty_test_loopback(10, &local_, nullptr), 0);
  EXPECT_EQ(root.printed(), begin(10) + counts(10, 0) + mismatch(0, 0, 0xFF));
}

TEST_F(loopback_test, pattern_is_sent_in_one_call) {
  const wire plug(line_1_, line_1_);
  root.trace("/dev/ttyS1");
  EXPECT_EQ(tty_test_loopback(200, &local_, nullptr), 1);
  const std::vector<device_event> writes = root.events("write");
  ASSERT_EQ(writes.size(), 1U);
  EXPECT_EQ(writes[0].fields[3], pattern(200));
}

}  // namespace
