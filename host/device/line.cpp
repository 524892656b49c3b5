// Serial ports by libserialport, pseudo-terminals by termios, the rest by sockets.
#include "device/line.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <libserialport.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "device/cancel.h"
#include "device/failure.h"
#include "device/port_user.h"

namespace {

constexpr milliseconds connect_limit{10000};
constexpr milliseconds agreement_limit{5000};
// Small enough that what stands unsent in this computer is a fraction of a second of the line.
constexpr size_t piece_size = 1024;

[[noreturn]] void no_port(const port_name& name, const std::string& why) {
  throw device_failure(status_port, fmt::format("{}: {}", name.text, why));
}

void refuse_used(const port_name& name, int fd, bool alone) {
  if (const std::string user = port_user_keep_out(fd, name.path, alone); !user.empty()) {
    no_port(name, fmt::format("in use by {}", user));
  }
}

// Waits for one descriptor and Ctrl-C. Result: the events of the descriptor, 0 at the time-out, -1 at Ctrl-C.
int poll_one(int fd, short events, milliseconds limit, bool shielded) {
  pollfd waits[] = {{.fd = fd, .events = events, .revents = 0},
                    {.fd = shielded ? -1 : cancel_descriptor(), .events = POLLIN, .revents = 0}};
  const auto end = clock_type::now() + limit;
  for (;;) {
    const auto left = std::chrono::ceil<milliseconds>(end - clock_type::now()).count();
    const int count = poll(waits, 2, static_cast<int>(std::max<long>(left, 0)));
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (waits[1].revents != 0) {
      return -1;
    }
    return count <= 0 ? 0 : waits[0].revents;
  }
}

// Result: a connected socket, or one that is not valid with errno set.
unique_fd connect_within(int family, const sockaddr* address, socklen_t size) {
  unique_fd fd(socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fd) {
    return fd;
  }
  if (connect(fd.get(), address, size) == 0) {
    return fd;
  }
  int error = errno;
  if (error == EINPROGRESS) {
    const int events = poll_one(fd.get(), POLLOUT, connect_limit, false);
    socklen_t length = sizeof error;
    if (events < 0) {
      throw device_failure(status_interrupted, "interrupted before the port was open");
    }
    if (events == 0) {
      error = ETIMEDOUT;
    } else if (getsockopt(fd.get(), SOL_SOCKET, SO_ERROR, &error, &length) == 0 && error == 0) {
      return fd;
    }
  }
  fd.reset();
  errno = error;
  return fd;
}

struct serial_port_owner {
  sp_port* port = nullptr;
  serial_port_owner() = default;
  serial_port_owner(const serial_port_owner&) = delete;
  serial_port_owner& operator=(const serial_port_owner&) = delete;
  ~serial_port_owner() { sp_free_port(port); }
};

std::string last_error() {
  char* text = sp_last_error_message();
  std::string copy = text != nullptr ? text : "error";
  sp_free_error_message(text);
  return copy;
}

}  // namespace

line::line(const port_name& name, const line_settings& settings) : name_(name) {
  switch (name.kind) {
    case port_kind::serial:
      open_serial(settings);
      break;
    case port_kind::pseudo:
      open_pseudo();
      break;
    case port_kind::tcp:
      open_network();
      break;
    case port_kind::rfc2217:
      open_network();
      agree(settings);
      break;
    case port_kind::unix_socket:
      open_unix();
      break;
  }
}

// Somebody else may have the terminal open, too, and would keep it ours.
line::~line() {
  if (is_terminal_) {
    ioctl(fd_.get(), TIOCNXCL);
  }
}

// The library finds and opens the port and knows its odd speeds; it keeps its descriptor to itself, so ours
// is one of our own on the same port, whose settings stay when the library's is closed.
void line::open_serial(const line_settings& settings) {
  unique_fd fd(open(name_.path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  if (!fd) {
    no_port(name_,
            errno == EBUSY ? "in use by another process" : fmt::format("open error ({})", strerror(errno)));
  }
  if (isatty(fd.get()) == 0) {
    no_port(name_, "not a serial port");
  }
  serial_port_owner owner;
  sp_port_config* config = nullptr;
  if (sp_get_port_by_name(name_.path.c_str(), &owner.port) != SP_OK ||
      sp_open(owner.port, SP_MODE_READ_WRITE) != SP_OK) {
    no_port(name_, fmt::format("open error ({})", last_error()));
  }
  refuse_used(name_, fd.get(), true);
  sp_new_config(&config);
  sp_set_config_baudrate(config, static_cast<int>(settings.speed));
  sp_set_config_bits(config, 8);
  sp_set_config_parity(config, SP_PARITY_NONE);
  sp_set_config_stopbits(config, 1);
  sp_set_config_flowcontrol(config, settings.hardware_flow ? SP_FLOWCONTROL_RTSCTS : SP_FLOWCONTROL_NONE);
  const sp_return result = sp_set_config(owner.port, config);
  const std::string why = result == SP_OK ? "" : last_error();
  sp_free_config(config);
  if (result != SP_OK) {
    no_port(name_, fmt::format("{} bps cannot be set ({})", settings.speed, why));
  }
  // Closing it would let go of the port's modem lines on some drivers: ours keeps the port open meanwhile.
  sp_close(owner.port);
  fd_ = std::move(fd);
  is_terminal_ = true;
}

void line::open_pseudo() {
  unique_fd fd(open(name_.path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  if (!fd) {
    no_port(name_,
            errno == EBUSY ? "in use by another process" : fmt::format("open error ({})", strerror(errno)));
  }
  // Whoever made the pair may keep this end open, too; only a lock says that it is used.
  refuse_used(name_, fd.get(), false);
  termios terminal;
  if (tcgetattr(fd.get(), &terminal) != 0) {
    no_port(name_, fmt::format("not a terminal ({})", strerror(errno)));
  }
  cfmakeraw(&terminal);
  if (tcsetattr(fd.get(), TCSANOW, &terminal) != 0) {
    no_port(name_, fmt::format("cannot be made raw ({})", strerror(errno)));
  }
  fd_ = std::move(fd);
  is_terminal_ = true;
}

void line::open_network() {
  addrinfo hints = {};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  if (const int error = getaddrinfo(name_.host.c_str(), name_.service.c_str(), &hints, &list); error != 0) {
    no_port(name_, gai_strerror(error));
  }
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(list, freeaddrinfo);
  for (const addrinfo* row = list; row != nullptr && !fd_; row = row->ai_next) {
    fd_ = connect_within(row->ai_family, row->ai_addr, row->ai_addrlen);
  }
  if (!fd_) {
    no_port(name_, fmt::format("cannot connect ({})", strerror(errno)));
  }
  const int on = 1;
  setsockopt(fd_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  setsockopt(fd_.get(), SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
  // A server that vanished without a word is noticed while data wait to be acknowledged.
  const unsigned silent_ms = 20000;
  setsockopt(fd_.get(), IPPROTO_TCP, TCP_USER_TIMEOUT, &silent_ms, sizeof silent_ms);
  // What waits in this computer is what cannot be taken back.
  const int buffer = 16 << 10;
  setsockopt(fd_.get(), SOL_SOCKET, SO_SNDBUF, &buffer, sizeof buffer);
}

void line::open_unix() {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (name_.path.size() >= sizeof address.sun_path) {
    no_port(name_, "the path is too long for a socket");
  }
  name_.path.copy(address.sun_path, name_.path.size());
  fd_ = connect_within(AF_UNIX, reinterpret_cast<sockaddr*>(&address), sizeof address);
  if (!fd_) {
    no_port(name_, fmt::format("cannot connect ({})", strerror(errno)));
  }
}

void line::agree(const line_settings& settings) {
  telnet_ = std::make_unique<telnet_port>();
  send_now(telnet_->greeting(), agreement_limit);
  bool asked = false;
  const auto end = clock_type::now() + agreement_limit;
  while (!telnet_->settled()) {
    if (telnet_->refused()) {
      no_port(name_, "the other side does not set serial ports (RFC 2217); tcp: takes it as it is");
    }
    if (telnet_->agreed() && !asked) {
      asked = true;
      send_now(telnet_->settings(settings.speed, settings.hardware_flow), agreement_limit);
    }
    const auto left = std::chrono::duration_cast<milliseconds>(end - clock_type::now());
    if (left.count() <= 0) {
      no_port(name_, "the other side does not answer in the way of RFC 2217; tcp: takes it as it is");
    }
    read(left);  // what the device says meanwhile belongs to nobody
  }
  if (telnet_->speed() != settings.speed) {
    no_port(name_, fmt::format("{} bps cannot be set there", settings.speed));
  }
}

void line::lost(const std::string& why) const {
  throw device_failure(status_line_lost, fmt::format("{}: the line is lost ({})", name_.text, why));
}

line::readiness line::wait(bool for_reading, bool for_writing, milliseconds limit) {
  const bool may_write = for_writing && !(telnet_ && telnet_->suspended());
  const bool has_unsent = !unsent_.empty();
  if (for_reading && !inbox_.empty()) {
    return {.readable = true, .writable = false};
  }
  const auto events =
      static_cast<short>((for_reading ? POLLIN : 0) | (may_write || has_unsent ? POLLOUT : 0));
  const int found = poll_one(fd_.get(), events, limit, shielded_);
  if (found < 0) {
    throw device_failure(status_interrupted, "interrupted");
  }
  if ((found & POLLIN) == 0 && (found & (POLLHUP | POLLERR | POLLNVAL)) != 0) {
    lost("it was hung up");
  }
  return {.readable = (found & (POLLIN | POLLHUP)) != 0, .writable = may_write && (found & POLLOUT) != 0};
}

std::string line::take() {
  if (!inbox_.empty()) {
    return std::exchange(inbox_, {});
  }
  char buffer[4096];
  const ssize_t count = ::read(fd_.get(), buffer, sizeof buffer);
  if (count < 0) {
    if (errno == EAGAIN || errno == EINTR) {
      return {};
    }
    lost(strerror(errno));
  }
  if (count == 0) {
    lost("the other side closed it");
  }
  const std::string_view raw(buffer, static_cast<size_t>(count));
  if (!telnet_) {
    return std::string(raw);
  }
  std::string answer;
  std::string data = telnet_->decode(raw, answer);
  unsent_ += answer;
  if (!unsent_.empty()) {
    write_some({});
  }
  return data;
}

std::string line::read(milliseconds limit) {
  return wait(true, false, limit).readable ? take() : std::string();
}

size_t line::write_some(std::string_view data) {
  const std::string_view piece = data.substr(0, piece_size);
  if (!telnet_) {
    const ssize_t count = piece.empty() ? 0 : ::write(fd_.get(), piece.data(), piece.size());
    if (count < 0 && errno != EAGAIN && errno != EINTR) {
      lost(strerror(errno));
    }
    return count < 0 ? 0 : static_cast<size_t>(count);
  }
  // An encoded piece counts as handed on, and goes before the next one.
  size_t taken = 0;
  if (unsent_.empty()) {
    unsent_ = telnet_port::encode(piece);
    taken = piece.size();
  }
  const ssize_t count = ::write(fd_.get(), unsent_.data(), unsent_.size());
  if (count < 0 && errno != EAGAIN && errno != EINTR) {
    lost(strerror(errno));
  }
  unsent_.erase(0, count < 0 ? 0 : static_cast<size_t>(count));
  return taken;
}

void line::write(std::string_view data, milliseconds limit) {
  auto end = clock_type::now() + limit;
  while (!data.empty() || !unsent_.empty()) {
    const auto left = std::chrono::ceil<milliseconds>(end - clock_type::now());
    if (left.count() <= 0) {
      lost(fmt::format("it takes nothing for {} s", limit.count() / 1000));
    }
    wait(false, true, std::min(left, milliseconds(200)));
    if (telnet_ && telnet_->suspended()) {
      // Only what comes can end the suspension; data among it are kept for who reads next.
      const std::string kept = std::exchange(inbox_, {});
      inbox_ = kept + read(milliseconds(200));
      continue;
    }
    const size_t sent = write_some(data);
    data.remove_prefix(sent);
    if (sent != 0) {
      end = clock_type::now() + limit;
    }
  }
}

void line::send_now(std::string_view raw, milliseconds limit) {
  unsent_ += raw;
  write({}, limit);
}

void line::discard_unsent() {
  if (is_terminal_) {
    tcflush(fd_.get(), TCOFLUSH);
  }
}
