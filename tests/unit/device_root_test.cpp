// The fixture itself: a device that records wrongly, or lets a fault pass, would make every other test
// worthless.
#include "device_root.h"

#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "util/command_process.h"

namespace {

class device_root_test : public device_test {};

int run(const char* line) {
  const int status = system(line);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

TEST_F(device_root_test, tools_are_noted_with_the_line_as_composed) {
  EXPECT_EQ(run("/usr/sbin/flash_lock /dev/mtd2 0 -1 &> /dev/null"), 0);
  EXPECT_EQ(run("tftp -r \"my file\" -l - 10.0.0.1"), 0);
  EXPECT_EQ(root.shell_lines(),
            lines({"/usr/sbin/flash_lock /dev/mtd2 0 -1 &> /dev/null", "tftp -r \"my file\" -l - 10.0.0.1"}));
  EXPECT_EQ(root.ran(), lines({"/usr/sbin/flash_lock /dev/mtd2 0 -1", "tftp -r 'my file' -l - 10.0.0.1"}));
  root.forget();
  EXPECT_EQ(root.ran(), lines());
}

TEST_F(device_root_test, answers_come_in_their_order) {
  root.answer("ps", {.status = 3});
  root.answer("ps", {.when = "-w", .signal_number = 9});
  root.answer("ps", {.times = 1, .out = "once", .err = "said "});
  EXPECT_EQ(run("/bin/ps"), 0);
  EXPECT_EQ(root.printed(), "said once");
  EXPECT_EQ(run("/bin/ps"), 3);
  EXPECT_EQ(run("exec /bin/ps -w"), -9);
}

TEST_F(device_root_test, input_of_a_pipe_is_noted) {
  FILE* pipe = popen("tar -xf -", "w");
  ASSERT_NE(pipe, nullptr);
  fputs("123456789", pipe);
  EXPECT_EQ(pclose(pipe), 0);
  const auto inputs = root.events("input");
  ASSERT_EQ(inputs.size(), 1U);
  EXPECT_EQ(inputs[0].fields, lines({"tar", "9", "cbf43926", "123456789"}));
}

TEST_F(device_root_test, flash_tools_act_on_the_nodes) {
  root.set_partitions({{"a", 0x20000}, {"b", 0x20000}});
  root.write_file("/tmp/in", "contents");
  EXPECT_EQ(run("/usr/sbin/flash_erase -q /dev/mtd1 0 0"), 0);
  EXPECT_EQ(root.read_file("/dev/mtd1"), std::string(0x20000, '\xff'));
  EXPECT_EQ(run("/usr/sbin/flashcp /tmp/in /dev/mtd1"), 0);
  EXPECT_EQ(root.read_file("/dev/mtd1"), "contents" + std::string(0x20000 - 8, '\xff'));
  EXPECT_EQ(run("/usr/sbin/nandwrite -p -q /dev/mtd0 /tmp/in"), 0);
  EXPECT_EQ(run("/usr/sbin/nanddump -f /tmp/out -l 10 -o -b /dev/mtd0"), 0);
  EXPECT_EQ(root.read_file("/tmp/out"), std::string("contents\0\0", 10));
  EXPECT_EQ(run("/usr/sbin/mtd_debug read /dev/mtd1 0 9 /tmp/out"), 0);
  EXPECT_EQ(root.read_file("/tmp/out"), "contents\xff");
}

TEST_F(device_root_test, every_test_gets_a_fresh_one) {
  // The other tests of this file leave these behind.
  EXPECT_FALSE(root.exists("/tmp/in"));
  EXPECT_FALSE(root.exists("/dev/ttyS1"));
  EXPECT_EQ(root.env().size(), 3U);
  struct stat status;
  ASSERT_EQ(stat("/dev/mtd10", &status), 0);
  EXPECT_EQ(status.st_size, 0x8000000);
  EXPECT_EQ(getchar(), EOF);
  EXPECT_EQ(root.events().size(), 0U);
}

TEST_F(device_root_test, flash_is_described_and_has_bad_blocks) {
  root.write_file("/.harness/bad_blocks", "10 131072\n");
  const int fd = open("/dev/mtd10", O_RDONLY);
  mtd_info_user info = {};
  EXPECT_EQ(ioctl(fd, MEMGETINFO, &info), 0);
  EXPECT_EQ(info.type, MTD_NANDFLASH);
  EXPECT_EQ(info.size, 0x8000000U);
  EXPECT_EQ(info.erasesize, 0x20000U);
  long long good = 0;
  long long bad = 0x20000;
  EXPECT_EQ(ioctl(fd, MEMGETBADBLOCK, &good), 0);
  EXPECT_EQ(ioctl(fd, MEMGETBADBLOCK, &bad), 1);
  close(fd);
  const auto asked = root.events("ioctl");
  ASSERT_EQ(asked.size(), 3U);
  EXPECT_EQ(asked[2].text(), "ioctl /dev/mtd10 0x40084d0b 0000020000000000 -> 1");
}

TEST_F(device_root_test, merge_takes_the_lowest_free_number) {
  root.set_partitions({{"a", 0x20000}, {"ubi0", 0x40000, 0x20000}, {"user", 0x60000, 0x20000}});
  const int fd = open("/dev/mtd0", O_RDONLY);
  const uint8_t numbers[] = {1, 2};
  EXPECT_EQ(ioctl(fd, 0x40044D1B, numbers), 0);
  EXPECT_EQ(ioctl(fd, 0x40044D1B, numbers), -1);
  EXPECT_EQ(errno, EINVAL);
  close(fd);
  EXPECT_EQ(root.read_file("/proc/mtd"),
            "dev:    size   erasesize  name\n"
            "mtd0: 00020000 00010000 \"a\"\n"
            "mtd3: 000a0000 00020000 \"ubi0\"\n");
}

TEST_F(device_root_test, requests_are_answered_as_told) {
  root.fail_ioctl(0x40044D18, EBUSY, "/dev/mtd0");
  root.answer_ioctl(MEMGETINFO, std::string(32, '\x11'));
  const int fd = open("/dev/mtd0", O_RDONLY);
  int number = 10;
  EXPECT_EQ(ioctl(fd, 0x40044D18, &number), -1);
  EXPECT_EQ(errno, EBUSY);
  mtd_info_user info = {};
  EXPECT_EQ(ioctl(fd, MEMGETINFO, &info), 0);
  EXPECT_EQ(info.size, 0x11111111U);
  close(fd);
  EXPECT_EQ(root.sequence().at(0), "ioctl /dev/mtd0 0x40044d18 0a000000 -> EBUSY");
}

TEST_F(device_root_test, calls_fail_as_told) {
  root.fail_call("fork", {.error = EAGAIN, .after = 0, .times = 1});
  EXPECT_EQ(fork(), -1);
  EXPECT_EQ(errno, EAGAIN);
  root.fail_call("posix_spawn", {.match = "fw_printenv", .error = ENOMEM});
  EXPECT_EQ(command_start("/usr/sbin/fw_printenv"), -1);
  EXPECT_EQ(errno, ENOMEM);
  root.fail_call("open", {.match = "/dev/mtd2", .error = EACCES});
  EXPECT_EQ(open("/dev/mtd2", O_RDONLY), -1);
  EXPECT_EQ(errno, EACCES);
  root.fail_call("fopen", {.match = "/proc/mtd", .error = ENFILE});
  EXPECT_EQ(fopen("/proc/mtd", "r"), nullptr);
  root.fail_call("malloc", {.match = "4096", .error = ENOMEM});
  void* volatile memory = malloc(4096);
  EXPECT_EQ(memory, nullptr);
  memory = malloc(4097);
  EXPECT_NE(memory, nullptr);
  free(memory);
  root.fail_call("mmap", {.match = "12345", .error = ENOMEM});
  EXPECT_EQ(mmap(nullptr, 12345, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0), MAP_FAILED);
  root.fail_call("select", {.error = 0, .result = 0});
  EXPECT_EQ(select(0, nullptr, nullptr, nullptr, nullptr), 0) << "a time-out at once";
  root.fail_call("sigaction", {.match = "3", .error = EINVAL});
  struct sigaction action = {};
  EXPECT_EQ(sigaction(SIGQUIT, &action, nullptr), -1);
  EXPECT_EQ(sigaction(SIGINT, &action, nullptr), 0);
}

TEST_F(device_root_test, transfers_are_cut_short_as_told) {
  root.fail_call("write", {.match = "/dev/mtd2", .error = 0, .result = 3, .after = 1, .times = 1});
  root.fail_call("write", {.match = "/dev/mtd2", .error = ENOSPC, .after = 1});
  root.fail_call("read", {.match = "/dev/mtd2", .error = 0, .result = 2, .times = 1});
  root.fail_call("read", {.match = "/dev/mtd2", .error = 0, .result = 0, .times = 1});
  const int fd = open("/dev/mtd2", O_RDWR);
  EXPECT_EQ(write(fd, "abcdef", 6), 6);
  EXPECT_EQ(write(fd, "ghijkl", 6), 3);
  EXPECT_EQ(write(fd, "m", 1), -1);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(lseek(fd, 0, SEEK_SET), 0);
  char buffer[16] = {};
  EXPECT_EQ(read(fd, buffer, 9), 2);
  EXPECT_EQ(read(fd, buffer, 9), 0);
  EXPECT_EQ(read(fd, buffer, 7), 7);
  EXPECT_STREQ(buffer, "cdefghi");
  close(fd);
}

TEST_F(device_root_test, serial_port_carries_bytes_and_settings) {
  const serial_port port(1);
  const int fd = open("/dev/ttyS1", O_RDWR | O_NOCTTY);
  ASSERT_GE(fd, 0);
  termios raw = {};
  raw.c_cflag = B9600 | CS8 | CREAD | CLOCAL;
  raw.c_cc[VMIN] = 1;
  EXPECT_EQ(tcflush(fd, TCIFLUSH), 0);
  EXPECT_EQ(tcsetattr(fd, TCSANOW, &raw), 0);
  EXPECT_EQ(port.settings().c_cflag & CBAUD, static_cast<tcflag_t>(B9600));
  port.send("in\r");
  char buffer[8] = {};
  EXPECT_EQ(read(fd, buffer, sizeof buffer), 3);
  EXPECT_STREQ(buffer, "in\r");
  EXPECT_EQ(write(fd, "out\n", 4), 4);
  EXPECT_EQ(port.received(1000), "out\n");
  root.set_input(port);
  EXPECT_TRUE(isatty(0));
  close(fd);
  EXPECT_EQ(root.events("tcflush").at(0).fields, lines({"/dev/ttyS1", "input", "0"}));
  EXPECT_EQ(root.events("tcsetattr").at(0).fields.at(0), "/dev/ttyS1");
}

TEST_F(device_root_test, huge_sources_and_sinks_take_no_room) {
  root.make_sparse("/tmp/huge", 0xFFFFFFFFU);
  root.make_sink("/dev/mtd5");
  struct stat status;
  ASSERT_EQ(stat("/tmp/huge", &status), 0);
  EXPECT_EQ(status.st_size, 0xFFFFFFFFLL);
  EXPECT_LT(status.st_blocks, 64);
  const int fd = open("/dev/mtd5", O_RDWR);
  EXPECT_EQ(write(fd, "x", 1), 1);
  close(fd);
}

TEST_F(device_root_test, input_and_output) {
  root.set_input("ab");
  EXPECT_EQ(getchar(), 'a');
  EXPECT_EQ(getchar(), 'b');
  EXPECT_EQ(getchar(), EOF);
  printf("one\n");
  fprintf(stderr, "two\n");
  EXPECT_EQ(run("echo three"), 0);
  EXPECT_EQ(root.printed(), "one\ntwo\nthree\n");
  EXPECT_EQ(root.printed(), "");
}

TEST_F(device_root_test, rules_in_vain_are_noticed) {
  root.answer("ps", {});
  root.answer("top", {.optional = true});
  root.fail_call("fork");
  EXPECT_EQ(root.unused(), lines({"answer of ps ", "fork "}));
  EXPECT_EQ(run("/bin/ps"), 0);
  EXPECT_EQ(fork(), -1);
  EXPECT_EQ(root.unused(), lines());
}

}  // namespace
