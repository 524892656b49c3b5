// What the unit tests share: the fixture that starts every test with the program's state as it is at its
// start, senders of streams, images built by hand, and the checksum computed the plain way.
#ifndef LOADER_TEST_H
#define LOADER_TEST_H

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "device_root.h"
#include "mtd/partition_table.h"
#include "platform/mode.h"
#include "tty/port.h"
#include "util/log.h"

// ---------------------------------------------------------------------------------------------- fixture

// The program's globals; every test gets them as they were before main().
struct program_state {
  uint32_t level = log_level;
  int32_t state = log_state;
  tty_port console = tty_cli;
  opmode_boards board = g_opmode_board;
  uint64_t ubi0_size = ubi0_mtd_size_max;
  std::vector<mtd_partition> rows{mtd_config_table, mtd_config_table + mtd_config_table_rows};

  void put() const {
    log_level = level;
    log_state = state;
    tty_cli = console;
    g_opmode_board = board;
    ubi0_mtd_size_max = ubi0_size;
    std::copy(rows.begin(), rows.end(), mtd_config_table);
  }
};
inline const program_state state_at_start;

class loader_test : public device_test {
 protected:
  loader_test() : descriptors_(open_descriptors()) {
    state_at_start.put();
    setvbuf(stdin, nullptr, _IONBF, 0);  // as the shell's loop has it
  }
  ~loader_test() override {
    state_at_start.put();
    signal(SIGINT, SIG_DFL);
    signal(SIGQUIT, SIG_DFL);
  }

  void TearDown() override {
    EXPECT_EQ(open_descriptors(), descriptors_) << "descriptors were left open, or closed once too often";
    device_test::TearDown();
  }

  static long open_descriptors() {
    const std::filesystem::directory_iterator all("/.harness/proc/self/fd");
    return std::distance(begin(all), end(all));
  }

  long descriptors_;
};

// How every line that does not fit its buffer is refused.
inline std::string line_too_long(size_t limit) {
  return "ERROR: Command line too long, limit is " + std::to_string(limit) + " characters\n";
}

// ---------------------------------------------------------------------------------------------- bytes

inline std::string noise(size_t size, unsigned seed = 1) {
  std::mt19937 random(seed);
  std::string bytes(size, '\0');
  for (char& byte : bytes)
    byte = static_cast<char>(random());
  return bytes;
}

inline std::string big_endian(uint32_t value) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8)
    bytes += static_cast<char>(value >> shift);
  return bytes;
}

inline std::string hex(const std::string& bytes) {
  std::string text;
  for (const char byte : bytes) {
    constexpr char digits[] = "0123456789abcdef";
    text += digits[static_cast<uint8_t>(byte) >> 4];
    text += digits[static_cast<uint8_t>(byte) & 15];
  }
  return text;
}

inline const uint8_t* octets(const std::string& bytes) {
  return reinterpret_cast<const uint8_t*>(bytes.data());
}

inline uint8_t* octets(std::string& bytes) {
  return reinterpret_cast<uint8_t*>(bytes.data());
}

// The image checksum by its definition: every byte at its place in a big-endian word, carries folded twice.
inline uint32_t plain_checksum(const std::string& bytes) {
  uint64_t sum = 0;
  for (size_t i = 0; i < bytes.size(); i++)
    sum += uint64_t{static_cast<uint8_t>(bytes[i])} << (24 - 8 * (i % 4));
  sum = (sum >> 32) + (sum & 0xFFFFFFFF);
  sum = (sum >> 32) + sum;
  return ~static_cast<uint32_t>(sum);
}

// ---------------------------------------------------------------------------------------------- descriptors

// The descriptor that is open for `path` and is not `own`, or -1.
inline int descriptor_of(const std::string& path, int own) {
  for (const auto& entry : std::filesystem::directory_iterator("/.harness/proc/self/fd")) {
    std::error_code gone;
    const int fd = std::stoi(entry.path().filename());
    if (fd != own && std::filesystem::read_symlink(entry.path(), gone) == path) return fd;
  }
  return -1;
}

// Whether a tool that is started while `work` waits at `path` does not inherit what `work` has opened there.
// `own` is the test's descriptor for the path, or -1. `release` ends the wait.
template <typename Work, typename Release>
bool is_kept_from_tools(const std::string& path, int own, Work work, Release release) {
  std::thread worker(work);
  int fd = -1;
  const auto give_up = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while ((fd = descriptor_of(path, own)) == -1 && std::chrono::steady_clock::now() < give_up)
    std::this_thread::yield();
  const bool is_kept = fd != -1 && fcntl(fd, F_GETFD) == FD_CLOEXEC;
  release();
  worker.join();
  return is_kept;
}

// A pipe with a name, with both ends open until it is let go.
class named_pipe {
 public:
  explicit named_pipe(const char* path) {
    EXPECT_EQ(mkfifo(path, 0600), 0);
    fd_ = open(path, O_RDWR | O_CLOEXEC);
  }
  ~named_pipe() { let_go(); }
  named_pipe(const named_pipe&) = delete;
  named_pipe& operator=(const named_pipe&) = delete;

  int fd() const { return fd_; }
  void take(size_t count) const {
    std::string bytes(count, '\0');
    for (size_t done = 0; done < count;) {
      const ssize_t got = read(fd_, bytes.data(), count - done);
      ASSERT_GT(got, 0);
      done += static_cast<size_t>(got);
    }
  }
  void let_go() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
  }

 private:
  int fd_;
};

// ---------------------------------------------------------------------------------------------- senders

// A sender at the other end of a pipe. Its bytes wait there at once; then it is silent until it hangs up.
class sender {
 public:
  explicit sender(const std::string& bytes) {
    EXPECT_EQ(pipe2(ends_, O_CLOEXEC), 0);
    EXPECT_GE(fcntl(ends_[1], F_SETPIPE_SZ, 1 << 20), 1 << 20);
    send(bytes);
  }
  ~sender() {
    close(ends_[0]);
    hang_up();
  }
  sender(const sender&) = delete;
  sender& operator=(const sender&) = delete;

  int fd() const { return ends_[0]; }
  void send(const std::string& bytes) const {
    EXPECT_EQ(write(ends_[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  void hang_up() {
    if (ends_[1] >= 0) close(ends_[1]);
    ends_[1] = -1;
  }
  // What nobody has received; ends the sending.
  std::string rest() {
    hang_up();
    std::string bytes(1 << 20, '\0');
    const ssize_t got = read(ends_[0], bytes.data(), bytes.size());
    bytes.resize(got > 0 ? static_cast<size_t>(got) : 0);
    return bytes;
  }

 private:
  int ends_[2] = {-1, -1};
};

// A source too large for a pipe: zeros without end.
class endless_source {
 public:
  endless_source() : fd_(open("/dev/zero", O_RDONLY | O_CLOEXEC)) { EXPECT_GE(fd_, 0); }
  ~endless_source() { close(fd_); }
  endless_source(const endless_source&) = delete;
  endless_source& operator=(const endless_source&) = delete;

  int fd() const { return fd_; }

 private:
  int fd_;
};
inline constexpr uint32_t checksum_of_zeros = 0xFFFFFFFF;

// Lengths at which counts in 31 or 32 bits go wrong.
inline constexpr uint32_t huge_lengths[] = {0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};

// ---------------------------------------------------------------------------------------------- images

inline void put_number(std::string& header, size_t offset, uint32_t value) {
  header.replace(offset, 4, big_endian(value));
}

// Makes the checksum of a header right again.
inline void seal(std::string& header) {
  put_number(header, 16, 0);
  put_number(header, 16, plain_checksum(header.substr(0, 256)));
}

struct part {
  uint32_t type;
  std::string contents;
  uint32_t next_flag = 0;
  std::string version = {"\x03\x01\x00\x00R\x01", 6};
  std::string code = "AB";

  std::string header() const {
    const auto length = static_cast<uint32_t>(contents.size());
    std::string bytes = "KESTO-1" + std::string(249, '\0');
    put_number(bytes, 12, 256);
    put_number(bytes, 24, type);
    bytes.replace(32, 6, version);
    bytes.replace(38, 2, code);
    for (const size_t offset : {40, 44})
      put_number(bytes, offset, length);
    for (const size_t offset : {52, 92})
      put_number(bytes, offset, plain_checksum(contents));
    put_number(bytes, 200, next_flag);
    seal(bytes);
    return bytes;
  }
  std::string whole() const { return header() + contents; }

  // What is printed about it.
  std::string info() const {
    static const char* const names[] = {"invalid",
                                        "bootstrap",
                                        "bootloader",
                                        "boot_env",
                                        "firmware_kernel",
                                        "firmware_rootfs_jffs2_or_ext2",
                                        "production_loader",
                                        "recovery_loader",
                                        "config_loader",
                                        "reserved",
                                        "firmware_rootfs_ubifs_16keb",
                                        "oem_defaults",
                                        "firmware_rootfs_tar_lzma",
                                        "firmware_rootfs_ubifs_128keb",
                                        "python_setup"};
    char text[512];
    snprintf(text, sizeof text,
             "Image info:\n"
             "  Contents Type: %s (%d)\n"
             "  Contents Length: 0x%zX (%zu)\n"
             "  Contents Checksum: 0x%08X\n"
             "  Contents Version: 3.1.0.0R1\n"
             "  Product Code: AB\n",
             type < 15 ? names[type] : "unknown", static_cast<int>(type), contents.size(), contents.size(),
             plain_checksum(contents));
    return text;
  }
};

// A whole image; every part but the last announces the next one.
inline std::string image_of(std::vector<part> parts) {
  std::string bytes;
  for (size_t i = 0; i < parts.size(); i++) {
    parts[i].next_flag = i + 1 < parts.size() ? 1 : 0;
    bytes += parts[i].whole();
  }
  return bytes;
}

#endif
