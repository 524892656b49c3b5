// The device that unit tests run on: its files, the answers of its tools, calls that fail, and what it was
// asked to do.
//
// The unit test program enters a device root at its start (main.cpp), so the code under test finds the
// device's paths by name. A test takes its fixture from device_test and gets them fresh:
//
//     class bootenv_test : public device_test {};
//
//     TEST_F(bootenv_test, deletes_a_variable_that_is_set_to_nothing) {
//         EXPECT_EQ(uboot_env_set_val("bootcmd", ""), 1);
//         EXPECT_EQ(root.shell_lines(), lines({"/usr/sbin/fw_setenv bootcmd  > /dev/null 2>&1"}));
//         EXPECT_EQ(root.printed(), "");
//     }
//
// tests/README.md tells what the tools do by themselves, and what the log holds.
#ifndef DEVICE_ROOT_H
#define DEVICE_ROOT_H

#include <gtest/gtest.h>
#include <termios.h>

#include <cerrno>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

struct control;

using lines = std::vector<std::string>;

// One line of the log.
struct device_event {
  double seconds;  // monotonic
  int pid;
  std::string kind;
  std::vector<std::string> fields;

  // "run /usr/sbin/flash_unlock /dev/mtd2", "ioctl /dev/mtd0 0x40044d18 0a000000 -> 0", "sleep 1"
  std::string text() const;
};

// How a tool answers instead of doing anything.
struct tool_answer {
  std::string when = {};  // only runs whose command line contains this text
  int times = 0;          // only so many runs, used up in the order given; 0 = all
  int status = 0;
  int signal_number = 0;  // the signal that kills it instead
  std::string out = {};
  std::string err = {};
  int delay_ms = 0;       // before it does anything
  int hold_ms = 0;        // between its output and its end
  long reads = -1;        // bytes it takes from a pipe on its standard input, -1 = all
  bool acts = false;      // also does what it does without an answer
  bool optional = false;  // the test does not fail when the answer is never used
};

// How a call of the C library fails: see DeviceRoot.fail_call in support/device_root.py for the calls.
struct call_failure {
  std::string match =
      {};           // only calls whose path or command line contains this; malloc, mmap: the exact size
  int error = EIO;  // 0 = none: read and write move at most `result` bytes, other calls return `result`
  long result = -1;
  long after = 0;   // so many matching calls succeed first
  long times = -1;  // then so many fail, -1 = all
  bool optional = false;
};

struct partition_row {
  std::string name;
  uint64_t size;
  uint32_t erase_size = 0x10000;
};

// The test's end of a serial port: a pseudo-terminal that the device sees as /dev/ttyS<number> while this
// lives.
class serial_port {
 public:
  explicit serial_port(int number);
  ~serial_port();
  serial_port(const serial_port&) = delete;
  serial_port& operator=(const serial_port&) = delete;

  const std::string& path() const { return path_; }
  void send(const std::string& bytes) const;
  // As send(), as long as the line takes more within `wait_ms`. Returns how many bytes it took.
  size_t offer(const std::string& bytes, int wait_ms) const;
  // What the device has sent since the last call, after waiting up to `wait_ms` for it to begin.
  std::string received(int wait_ms = 0) const;
  // The port's settings now, whoever made them; a test may set others before the program does.
  termios settings() const;
  void set_settings(const termios& settings) const;
  // The device's end, for use as a descriptor.
  int device_fd() const { return slave_; }

 private:
  std::string path_;
  int master_;
  int slave_;
};

class device_root {
 public:
  device_root();
  ~device_root();
  device_root(const device_root&) = delete;
  device_root& operator=(const device_root&) = delete;

  // Files. A path stands as the program uses it.
  void write_file(const std::string& path, const std::string& content) const;
  std::string read_file(const std::string& path) const;
  // A file of that many zero bytes that takes no room: for lengths around 2^31 and 2^32.
  void make_sparse(const std::string& path, uint64_t size) const;
  // What is written there vanishes, however much: a node that can stand for a huge partition.
  void make_sink(const std::string& path) const;
  bool exists(const std::string& path) const;
  void remove(const std::string& path) const;

  // Replaces /proc/mtd and the node files; numbered from 0.
  void set_partitions(const std::vector<partition_row>& rows) const;
  // The boot environment behind fw_printenv and fw_setenv.
  std::map<std::string, std::string> env() const;
  void set_env(const std::string& name, const std::string& value) const;

  void answer(const std::string& tool, const tool_answer& answer);
  void fail_call(const std::string& call, const call_failure& failure = {});
  // A request fails, or is answered with `data` stored through its argument. No path: on any descriptor.
  void fail_ioctl(uint32_t request, int error, const std::string& path = "");
  void answer_ioctl(uint32_t request, const std::string& data, int result = 0, const std::string& path = "");
  // Every call and request works again.
  void drop_rules();
  // The free space of every file system; 100 MiB unless changed.
  void set_free_space(uint64_t blocks, long block_size);
  // Real seconds per second slept; 0.01 unless changed.
  void set_sleep_scale(double scale);
  // Also logs open, read and write of paths that begin so, or the calls of "select".
  void trace(const std::string& prefix);

  // What happened, in order, since the begin of the test or the last forget().
  std::vector<device_event> events() const;
  std::vector<device_event> events(const std::string& kind) const;
  lines ran() const;          // command lines as the tools saw them
  lines shell_lines() const;  // command lines as the program composed them
  lines sequence() const;     // tool runs, requests, sleeps, traced writes and selects as text
  std::vector<double> sleeps() const;
  void forget();

  // What standard output and error got since the last call, in order; tools' output is in it, too.
  std::string printed();
  // Standard input from now on: these bytes and then its end, or a serial port. Without, it is empty.
  void set_input(const std::string& bytes) const;
  void set_input(const serial_port& port) const;

  // Answers and failing calls that never came to use.
  lines unused() const;

 private:
  void add_rule(const std::string& call, const std::string& match, const call_failure& failure,
                const std::string& data);

  std::vector<device_event> all_events() const;

  control* control_;
  std::map<std::string, std::string> expected_answers_;
  std::map<int, std::string> expected_calls_;
  std::map<std::string, std::string> answer_names_;
  int next_rule_ = 0;
  size_t mark_ = 0;
  int saved_input_;
  int saved_output_;
  int saved_error_;
  size_t printed_to_ = 0;
};

// A fresh device per test. The test fails when it prepared an answer or a failing call in vain.
class device_test : public ::testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(root.unused(), lines()) << "prepared in vain"; }

  device_root root;
};

#endif
