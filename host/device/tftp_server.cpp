// Packets: RFC 1350; options blksize (RFC 2348) and tsize (RFC 2349).
#include "device/tftp_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <list>
#include <string_view>
#include <vector>

#include "device/failure.h"

namespace {

using clock_type = std::chrono::steady_clock;

enum packets : uint16_t { read_request = 1, write_request, data, acknowledgement, error, options };
enum errors : uint16_t { not_found = 1, access_violation, illegal_operation = 4 };

constexpr uint32_t plain_block = 512, smallest_block = 8, largest_block = 65464;
// A client that installs what has come does not take anything meanwhile, which may last minutes: it is asked
// again and again, ever more seldom, and forgotten when it is surely gone.
constexpr std::chrono::milliseconds first_wait{1000}, longest_wait{8000};
constexpr std::chrono::minutes gone{15};
// Read at once; at least the largest block.
constexpr uint64_t read_ahead = 128 << 10;

void put_word(std::string& packet, uint16_t value) {
  packet.push_back(static_cast<char>(value >> 8));
  packet.push_back(static_cast<char>(value));
}

uint16_t word_at(std::string_view packet, size_t at) {
  return static_cast<uint16_t>(static_cast<uint8_t>(packet[at]) << 8 | static_cast<uint8_t>(packet[at + 1]));
}

std::string error_packet(errors code, const char* text) {
  std::string packet;
  put_word(packet, error);
  put_word(packet, code);
  packet += text;
  packet.push_back('\0');
  return packet;
}

// The words of a request: name, mode, then options with their values.
std::vector<std::string> request_words(std::string_view packet) {
  std::vector<std::string> words;
  for (size_t begin = 2; begin < packet.size();) {
    const size_t end = packet.find('\0', begin);
    if (end == std::string_view::npos) {
      break;
    }
    words.emplace_back(packet.substr(begin, end - begin));
    begin = end + 1;
  }
  return words;
}

bool same_word(const std::string& a, const char* b) {
  return strcasecmp(a.c_str(), b) == 0;
}

bool same_address(const sockaddr_in& a, const sockaddr_in& b) {
  return a.sin_addr.s_addr == b.sin_addr.s_addr && a.sin_port == b.sin_port;
}

sockaddr_in address_of(const std::string& text, uint16_t port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  if (inet_pton(AF_INET, text.c_str(), &address.sin_addr) != 1) {
    throw device_failure(status_server, fmt::format("'{}' is no address to serve on (A.B.C.D)", text));
  }
  return address;
}

[[noreturn]] void refuse_socket(const std::string& address, uint16_t port, int code) {
  if (code == EACCES || code == EPERM) {
    throw device_failure(
        status_server,
        fmt::format(
            "UDP port {} needs a privilege: grant it once with 'setcap cap_net_bind_service+ep $(command -v "
            "kesto)', or name a server that is there already (--tftp ADDRESS:FILE)",
            port));
  }
  if (code == EADDRINUSE) {
    throw device_failure(status_server,
                         fmt::format("{} port {} is taken by a server that is there already: put "
                                     "the image there and use --tftp {}:FILE",
                                     address, port, address));
  }
  if (code == EADDRNOTAVAIL) {
    throw device_failure(
        status_server, fmt::format("{} is no address of this computer: a server there needs the name of the "
                                   "file (--tftp {}:FILE)",
                                   address, address));
  }
  throw device_failure(status_server, fmt::format("{} port {}: {}", address, port, strerror(code)));
}

}  // namespace

struct tftp_server::client_transfer {
  sockaddr_in client = {};
  unique_fd socket;
  uint32_t block_size = plain_block;
  uint64_t number = 0;  // of the packet that is not acknowledged yet; 0 = the options
  std::string packet;
  bool is_last = false;
  std::string ahead;  // of the file, from offset `ahead_at`
  uint64_t ahead_at = 0;
  clock_type::time_point sent_at;
  clock_type::time_point heard_at;
  std::chrono::milliseconds wait = first_wait;
};

struct tftp_server::state {
  std::list<client_transfer> transfers;
  std::vector<pollfd> waits;
  std::string buffer = std::string(1 << 16, '\0');
};

tftp_server::tftp_server(const std::string& path, std::string name, const std::string& address, uint16_t port)
    : name_(std::move(name)), state_(std::make_unique<state>()) {
  file_.reset(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat status;
  if (!file_ || fstat(file_.get(), &status) != 0) {
    throw device_failure(status_failed, fmt::format("{}: open error ({})", path, strerror(errno)));
  }
  size_ = static_cast<uint64_t>(status.st_size);
  const sockaddr_in own = address_of(address, port);
  socket_.reset(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  stop_.reset(eventfd(0, EFD_CLOEXEC));
  if (!socket_ || !stop_) {
    refuse_socket(address, port, errno);
  }
  if (bind(socket_.get(), reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0) {
    refuse_socket(address, port, errno);
  }
  thread_ = std::thread([this] { serve(); });
}

tftp_server::~tftp_server() {
  eventfd_write(stop_.get(), 1);
  thread_.join();
}

void tftp_server::serve() {
  for (;;) {
    std::vector<pollfd>& waits = state_->waits;
    waits.assign({{.fd = stop_.get(), .events = POLLIN, .revents = 0},
                  {.fd = socket_.get(), .events = POLLIN, .revents = 0}});
    for (const client_transfer& transfer : state_->transfers) {
      waits.push_back({.fd = transfer.socket.get(), .events = POLLIN, .revents = 0});
    }
    poll(waits.data(), waits.size(), state_->transfers.empty() ? -1 : 100);
    if (waits[0].revents != 0) {
      return;
    }
    const auto now = clock_type::now();
    size_t at = 2;
    for (auto one = state_->transfers.begin(); one != state_->transfers.end(); ++at) {
      const bool is_over =
          (waits[at].revents != 0 && !take_acknowledgement(*one)) || now - one->heard_at > gone;
      if (is_over) {
        one = state_->transfers.erase(one);
        continue;
      }
      if (now - one->sent_at > one->wait) {
        one->wait = std::min(one->wait * 2, longest_wait);
        send_next(*one, true);
      }
      ++one;
    }
    if (waits[1].revents != 0) {
      take_request();
    }
  }
}

void tftp_server::take_request() {
  sockaddr_in client = {};
  socklen_t size = sizeof client;
  std::string& buffer = state_->buffer;
  const ssize_t count =
      recvfrom(socket_.get(), buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&client), &size);
  if (count < 2) {
    return;
  }
  const std::string_view packet(buffer.data(), static_cast<size_t>(count));
  const auto answer = [&](const std::string& text) {
    sendto(socket_.get(), text.data(), text.size(), 0, reinterpret_cast<const sockaddr*>(&client),
           sizeof client);
  };
  const std::vector<std::string> words = request_words(packet);
  if (word_at(packet, 0) == write_request) {
    return answer(error_packet(access_violation, "This server only gives"));
  }
  if (word_at(packet, 0) != read_request || words.size() < 2) {
    return answer(error_packet(illegal_operation, "Not a request"));
  }
  std::string_view wanted = words[0];
  wanted.remove_prefix(std::min(wanted.find_first_not_of('/'), wanted.size()));
  if (wanted != name_) {
    return answer(error_packet(not_found, "No such file"));
  }
  // A request that is repeated, because our answer was slow, is not a second transfer.
  const bool is_known =
      std::any_of(state_->transfers.begin(), state_->transfers.end(),
                  [&client](const client_transfer& one) { return same_address(one.client, client); });
  if (is_known) {
    return;
  }
  sockaddr_in own = {};
  socklen_t own_size = sizeof own;
  getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&own), &own_size);
  own.sin_port = 0;
  client_transfer fresh;
  fresh.client = client;
  fresh.socket.reset(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fresh.socket || bind(fresh.socket.get(), reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0 ||
      connect(fresh.socket.get(), reinterpret_cast<const sockaddr*>(&client), sizeof client) != 0) {
    return;
  }
  put_word(fresh.packet, options);
  const auto accept = [&fresh](const std::string& name, uint64_t value) {
    fresh.packet += name;
    fresh.packet.push_back('\0');
    fresh.packet += std::to_string(value);
    fresh.packet.push_back('\0');
  };
  for (size_t i = 2; i + 1 < words.size(); i += 2) {
    uint32_t value = 0;
    std::from_chars(words[i + 1].data(), words[i + 1].data() + words[i + 1].size(), value);
    if (same_word(words[i], "blksize") && value >= smallest_block) {
      fresh.block_size = std::min(value, largest_block);
      accept("blksize", fresh.block_size);
    } else if (same_word(words[i], "tsize")) {
      accept("tsize", size_);
    }
  }
  fresh.heard_at = clock_type::now();
  state_->transfers.push_back(std::move(fresh));
  client_transfer& added = state_->transfers.back();
  // Without an option that we know the first block is the answer.
  send_next(added, added.packet.size() > 2);
}

// The block that begins there; a shorter one at the end of the file, or where it cannot be read.
std::string_view tftp_server::block_at(client_transfer& transfer, uint64_t offset) {
  const uint64_t left = size_ - std::min(size_, offset);
  const uint64_t wanted = std::min<uint64_t>(transfer.block_size, left);
  std::string& ahead = transfer.ahead;
  if (offset < transfer.ahead_at || offset + wanted > transfer.ahead_at + ahead.size()) {
    ahead.resize(std::min(left, read_ahead));
    transfer.ahead_at = offset;
    uint64_t got = 0;
    while (got < ahead.size()) {
      const ssize_t count =
          pread(file_.get(), ahead.data() + got, ahead.size() - got, static_cast<off_t>(offset + got));
      if (count <= 0) {
        break;
      }
      got += static_cast<uint64_t>(count);
    }
    ahead.resize(got);
  }
  return std::string_view(ahead).substr(offset - transfer.ahead_at, wanted);
}

// Sends the next block, or the same packet `again`.
void tftp_server::send_next(client_transfer& transfer, bool again) {
  if (!again) {
    const uint64_t offset = transfer.number * transfer.block_size;
    ++transfer.number;
    const std::string_view block = block_at(transfer, offset);
    transfer.is_last = block.size() < transfer.block_size;
    transfer.wait = first_wait;
    transfer.packet.clear();
    put_word(transfer.packet, data);
    put_word(transfer.packet, static_cast<uint16_t>(transfer.number));
    transfer.packet += block;
    sent_ += block.size();
  }
  transfer.sent_at = clock_type::now();
  ::send(transfer.socket.get(), transfer.packet.data(), transfer.packet.size(), 0);
}

// Result: false when the transfer has ended.
bool tftp_server::take_acknowledgement(client_transfer& transfer) {
  const ssize_t count = recv(transfer.socket.get(), state_->buffer.data(), state_->buffer.size(), 0);
  if (count < 0) {
    return errno == EAGAIN || errno == EINTR || errno == ECONNREFUSED;
  }
  const std::string_view packet(state_->buffer.data(), static_cast<size_t>(count));
  if (packet.size() < 4 || word_at(packet, 0) == error) {
    return packet.size() < 4;
  }
  transfer.heard_at = clock_type::now();
  // An acknowledgement of an earlier packet is late, and answering it would double everything from there on.
  if (word_at(packet, 0) != acknowledgement || word_at(packet, 2) != static_cast<uint16_t>(transfer.number)) {
    return true;
  }
  if (transfer.is_last) {
    return false;
  }
  send_next(transfer, false);
  return true;
}
