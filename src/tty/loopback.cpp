// One thread serves both ports with select(), and bounds its writes with setitimer() and SIGALRM; the bytes
// sent count up and wrap after 255.
#include "tty/loopback.h"

#include <sys/select.h>
#include <sys/time.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "util/heap_buffer.h"
#include "util/log.h"

namespace {

constexpr const char* caller = "tty_test_loopback";
constexpr unsigned settle_seconds = 1;
constexpr time_t silence_seconds = 2;

uint8_t pattern_byte(size_t index) {
  return static_cast<uint8_t>(index % 256);
}

void dump_if_verbose(const uint8_t* data, size_t size) {
  if (log_level <= level_progress) {
    return;
  }
  for (size_t i = 0; i < size; ++i) {
    log_printf(level_plain, "%02x ", unsigned{data[i]});
  }
  log_printf(level_plain, "\n");
}

volatile sig_atomic_t write_timed_out = 0;

void note_timeout(int /*signal*/) {
  write_timed_out = 1;
}

// Ends a write into a line that takes no more.
class write_timer {
 public:
  explicit write_timer(time_t seconds) {
    struct sigaction action = {};
    action.sa_handler = note_timeout;  // without SA_RESTART: the write returns
    sigemptyset(&action.sa_mask);
    write_timed_out = 0;
    sigaction(SIGALRM, &action, &previous_);
    // Again every second, should it come just before the write begins.
    const itimerval timer = {.it_interval = {.tv_sec = 1, .tv_usec = 0},
                             .it_value = {.tv_sec = seconds, .tv_usec = 0}};
    setitimer(ITIMER_REAL, &timer, nullptr);
  }
  write_timer(const write_timer&) = delete;
  write_timer& operator=(const write_timer&) = delete;
  ~write_timer() {
    const itimerval off = {};
    setitimer(ITIMER_REAL, &off, nullptr);
    sigaction(SIGALRM, &previous_, nullptr);
  }

 private:
  struct sigaction previous_ = {};
};

// Writes in one call, which may take the time that the bytes need on the wire, ten bits each, and the silence
// that ends the test. Result: false with errno when not all were taken.
bool write_whole(const tty_port& port, const uint8_t* data, size_t size) {
  const write_timer timer(static_cast<time_t>(size * 10 / port.speed) + silence_seconds);
  if (write(port.fd, data, size) == static_cast<ssize_t>(size)) {
    return true;
  }
  if (write_timed_out != 0) {
    tcflush(port.fd, TCOFLUSH);  // closing the port would wait for the rest to go out
    errno = ETIMEDOUT;
  }
  return false;
}

bool open_port(tty_port* port) {
  if (!tty_open_raw(port)) {
    log_printf(level_error, "%s: tty_open_raw(%s%i) error(%s)\n", caller, port->device, port->port,
               strerror(errno));
    return false;
  }
  return true;
}

// Closes a port at the end of a test, however far that came.
class port_closer {
 public:
  explicit port_closer(tty_port* port) : port_(port) {}
  port_closer(const port_closer&) = delete;
  port_closer& operator=(const port_closer&) = delete;
  ~port_closer() {
    if (port_ != nullptr && port_->fd >= 0) {
      tty_close_raw(port_);
    }
  }

 private:
  tty_port* port_;
};

// One test between two open ports.
class loopback_test {
 public:
  loopback_test(size_t size, const tty_port& local, const tty_port* remote)
      : size_(size), local_(local), remote_(remote), sent_(size), received_(2 * size), echo_(remote_size()) {}

  // Result: false after an error when a buffer is missing.
  bool has_memory() const;
  // Discards what the lines hold from before.
  void drain();
  // Result: false after a failed read or write.
  bool transfer();
  // Result: false when what came back is not what was sent.
  bool verify() const;

 private:
  size_t remote_size() const { return remote_ != nullptr ? size_ : 0; }
  int highest_fd() const { return remote_ != nullptr ? std::max(local_.fd, remote_->fd) : local_.fd; }
  // Waits for either port to become readable. Result: that of select(), with the readable ones of the first
  // `count` descriptors in `readable`.
  int wait_readable(int count, time_t seconds, fd_set& readable) const;

  bool send_pattern() const;
  bool echo_on_remote() const;
  bool receive_on_local();

  size_t size_;
  const tty_port& local_;
  const tty_port* remote_;
  heap_buffer sent_;
  heap_buffer received_;  // twice the size, so that a line that returns too much shows itself
  heap_buffer echo_;
  size_t received_count_ = 0;
};

bool loopback_test::has_memory() const {
  const auto check = [](const heap_buffer& buffer, size_t size) {
    if (!buffer) {
      log_printf(level_error, "%s: malloc(%i)\n", caller, static_cast<int>(size));
    }
    return static_cast<bool>(buffer);
  };
  return check(sent_, size_) && check(received_, 2 * size_) && (remote_ == nullptr || check(echo_, size_));
}

int loopback_test::wait_readable(int count, time_t seconds, fd_set& readable) const {
  FD_ZERO(&readable);
  FD_SET(local_.fd, &readable);
  if (remote_ != nullptr) {
    FD_SET(remote_->fd, &readable);
  }
  timeval timeout = {.tv_sec = seconds, .tv_usec = 0};
  const int ready = select(count, &readable, nullptr, nullptr, &timeout);
  if (count <= highest_fd()) {
    FD_CLR(highest_fd(), &readable);  // not watched, and select() may leave it as it was
  }
  return ready;
}

void loopback_test::drain() {
  tcflush(local_.fd, TCIOFLUSH);
  if (remote_ != nullptr) {
    tcflush(remote_->fd, TCIOFLUSH);
  }
  sleep(settle_seconds);
  fd_set readable;
  // The count leaves out the higher descriptor: only the lower one is drained. A line that hung up is
  // readable for ever, so a read without bytes is the end, too.
  while (wait_readable(highest_fd(), 0, readable) > 0) {
    if (FD_ISSET(local_.fd, &readable) && read(local_.fd, received_.data(), 2 * size_) <= 0) {
      return;
    }
    if (remote_ != nullptr && FD_ISSET(remote_->fd, &readable) &&
        read(remote_->fd, echo_.data(), size_) <= 0) {
      return;
    }
  }
}

bool loopback_test::send_pattern() const {
  for (size_t i = 0; i < size_; ++i) {
    sent_.data()[i] = pattern_byte(i);
  }
  if (!write_whole(local_, sent_.data(), size_)) {
    log_printf(level_error, "%s: write(%s%i) != write_len, error=%s\n", caller, local_.device, local_.port,
               strerror(errno));
    return false;
  }
  log_printf(level_progress, "%s: sent %i bytes on local %s%i...\n", caller, static_cast<int>(size_),
             local_.device, local_.port);
  return true;
}

bool loopback_test::echo_on_remote() const {
  const ssize_t got = read(remote_->fd, echo_.data(), size_);
  if (got <= 0) {
    log_printf(level_error, "%s: read(%s%i) <= 0, error=%s\n", caller, remote_->device, remote_->port,
               strerror(errno));
    return false;
  }
  const auto count = static_cast<size_t>(got);
  if (!write_whole(*remote_, echo_.data(), count)) {
    log_printf(level_error, "%s: write(%s%i) != write_len, error=%s\n", caller, remote_->device,
               remote_->port, strerror(errno));
    return false;
  }
  log_printf(level_progress, "%s: looped back %i bytes on remote %s%i...\n", caller, static_cast<int>(got),
             remote_->device, remote_->port);
  dump_if_verbose(echo_.data(), count);
  return true;
}

bool loopback_test::receive_on_local() {
  uint8_t* at = received_.data() + received_count_;
  const ssize_t got = read(local_.fd, at, 2 * size_ - received_count_);
  if (got <= 0) {
    log_printf(level_error, "%s: read(%s%i) <= 0, error=%s\n", caller, local_.device, local_.port,
               strerror(errno));
    return false;
  }
  const auto count = static_cast<size_t>(got);
  log_printf(level_progress, "%s: received %i bytes on local %s%i...\n", caller, static_cast<int>(got),
             local_.device, local_.port);
  dump_if_verbose(at, count);
  received_count_ += count;
  return true;
}

bool loopback_test::transfer() {
  memset(received_.data(), 0xFF, 2 * size_);
  if (!send_pattern()) {
    return false;
  }
  fd_set readable;
  while (received_count_ < 2 * size_ && wait_readable(highest_fd() + 1, silence_seconds, readable) > 0) {
    if (remote_ != nullptr && FD_ISSET(remote_->fd, &readable) && !echo_on_remote()) {
      return false;
    }
    if (FD_ISSET(local_.fd, &readable) && !receive_on_local()) {
      return false;
    }
  }
  return true;
}

bool loopback_test::verify() const {
  log_printf(level_info, "%s: received total %i bytes looped back\n", caller,
             static_cast<int>(received_count_));
  if (received_count_ != size_) {
    log_printf(level_error, "sent %i bytes, received %i bytes\n", static_cast<int>(size_),
               static_cast<int>(received_count_));
    dump_if_verbose(received_.data(), received_count_);
  }
  for (size_t i = 0; i < size_; ++i) {
    if (received_.data()[i] != pattern_byte(i)) {
      log_printf(level_error, "Data mismatch: index=%i, expected=0x%02x, received=0x%02x\n",
                 static_cast<int>(i), unsigned{pattern_byte(i)}, unsigned{received_.data()[i]});
      return false;
    }
  }
  return true;
}

}  // namespace

bool tty_test_loopback(int32_t size, tty_port* local, tty_port* remote) {
  log_printf(level_trace, "%s:\n", __func__);
  log_printf(level_plain, "Testing loopback of %i bytes at %i bps...\n", size,
             static_cast<int>(local->speed));
  const port_closer remote_closer(remote);
  const port_closer local_closer(local);
  loopback_test test(static_cast<size_t>(size), *local, remote);
  if (!test.has_memory() || !open_port(local) || (remote != nullptr && !open_port(remote))) {
    return false;
  }
  test.drain();
  return test.transfer() && test.verify();
}
