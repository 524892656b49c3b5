// The packets that devices send to kesto's server, from four addresses at once, with time in between, against
// a client that knows what has to come. Byte 0: how long the file is; then steps: a byte with the kind in its
// lower three bits and the address in the two above, and what the kind wants.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "device/tftp_server.h"
#include "fuzz_input.h"

namespace {

void expect(bool holds) {
  if (!holds) {
    abort();
  }
}

enum kinds { request, good_request, good_acknowledgement, acknowledgement, packet, tenths, minutes, refused };

std::chrono::nanoseconds now{};
const uint8_t* next;
const uint8_t* end;
std::string contents;
// True in the server's thread while it runs; the fuzzer has files of its own.
thread_local bool server_runs = false;

// What one client has been sent, and what it has answered.
struct client {
  sockaddr_in address = {};
  uint64_t number = 0;  // of the block that came last
  std::string packet;   // as it came; empty: none has
  uint32_t block_size = 512;
  bool may_go_on = false;  // that packet was acknowledged
  bool is_last = false;
  bool is_over = false;  // it has all, or has given up: the server forgets it
};
std::map<int, client> clients;
int listener = -1;
std::string incoming;  // for whoever receives next
int incoming_error = 0;
sockaddr_in sender = {};

uint8_t take_byte() {
  return next != end ? *next++ : 0;
}

std::string take_text() {
  const size_t size = std::min<size_t>(take_byte(), static_cast<size_t>(end - next));
  std::string text(reinterpret_cast<const char*>(next), size);
  next += size;
  return text;
}

unsigned word_at(const std::string& bytes, size_t at) {
  return static_cast<unsigned>(static_cast<uint8_t>(bytes[at]) << 8 | static_cast<uint8_t>(bytes[at + 1]));
}

std::string acknowledgement_of(uint64_t number) {
  return {0, 4, static_cast<char>(number >> 8), static_cast<char>(number)};
}

std::string block(const client& of) {
  const uint64_t begin = std::min<uint64_t>((of.number - 1) * of.block_size, contents.size());
  return contents.substr(begin, of.block_size);
}

void take_options(client& to, const std::string& answer) {
  for (size_t at = 2; at < answer.size();) {
    const std::string name = answer.c_str() + at;
    const size_t value = at + name.size() + 1;
    expect(value < answer.size());
    const std::string number = answer.c_str() + value;
    at = value + number.size() + 1;
    if (name == "blksize") {
      to.block_size = static_cast<uint32_t>(std::stoul(number));
      expect(to.block_size >= 8 && to.block_size <= 65464);
    } else {
      expect(name == "tsize" && number == std::to_string(contents.size()));
    }
  }
}

void take_packet(client& to, const std::string& bytes) {
  expect(!to.is_over);
  if (bytes == to.packet) {
    return;  // again
  }
  if (to.packet.empty() && word_at(bytes, 0) == 6) {
    take_options(to, bytes);
  } else {
    expect(bytes.size() >= 4 && word_at(bytes, 0) == 3);
    expect(to.packet.empty() || (to.may_go_on && !to.is_last));
    ++to.number;
    expect(word_at(bytes, 2) == static_cast<uint16_t>(to.number) && bytes.substr(4) == block(to));
    to.is_last = bytes.size() - 4 < to.block_size;
  }
  to.packet = bytes;
  to.may_go_on = false;
}

// What the server finds when it looks next.
int step(pollfd* waits, size_t count) {
  if (next == end) {
    waits[0].revents = POLLIN;  // it is to stop
    return 1;
  }
  const uint8_t chosen = take_byte();
  const uint8_t who = chosen >> 3 & 3;
  const auto kind = static_cast<kinds>(chosen & 7);
  incoming_error = 0;
  pollfd* to = &waits[1];
  if (kind == tenths || kind == minutes) {
    const uint8_t time = take_byte();
    now += kind == tenths ? std::chrono::milliseconds(time * 100) : std::chrono::minutes(time % 32);
    return 0;
  }
  if (kind == request) {
    incoming = take_text();
  } else if (kind == good_request) {
    incoming = std::string("\0\1image\0octet\0", 14) + take_text();
  } else if (count > 2) {
    to = &waits[2 + who % (count - 2)];
    const client& from = clients.at(to->fd);
    incoming_error = kind == refused ? ECONNREFUSED : 0;
    incoming = kind == good_acknowledgement ? acknowledgement_of(from.number)
               : kind == packet             ? take_text()
                                            : acknowledgement_of(take_byte());
  } else {
    return 0;
  }
  sender.sin_family = AF_INET;
  sender.sin_addr.s_addr = htonl(0x0A000002U + who);
  sender.sin_port = htons(1024);
  to->revents = POLLIN;
  return 1;
}

ssize_t receive(void* buffer, size_t size) {
  if (incoming_error != 0) {
    errno = incoming_error;
    return -1;
  }
  const size_t count = std::min(size, incoming.size());
  memcpy(buffer, incoming.data(), count);
  return static_cast<ssize_t>(count);
}

}  // namespace

// The sockets of the server; CMakeLists.txt puts these in their places.
extern "C" {

int __wrap_socket(int, int, int) {
  return eventfd(0, EFD_CLOEXEC);
}

int __wrap_bind(int fd, const sockaddr*, socklen_t) {
  listener = listener == -1 ? fd : listener;
  return 0;
}

int __wrap_getsockname(int, sockaddr* address, socklen_t* size) {
  const sockaddr_in own = {.sin_family = AF_INET, .sin_port = htons(69), .sin_addr = {}, .sin_zero = {}};
  memcpy(address, &own, std::min<size_t>(*size, sizeof own));
  return 0;
}

int __wrap_connect(int fd, const sockaddr* address, socklen_t) {
  client fresh;
  memcpy(&fresh.address, address, sizeof fresh.address);
  for (const auto& [other, known] : clients) {
    expect(known.address.sin_addr.s_addr != fresh.address.sin_addr.s_addr);
  }
  clients[fd] = fresh;
  return 0;
}

int __real_close(int fd);
int __wrap_close(int fd) {
  if (server_runs) {
    clients.erase(fd);
  }
  return __real_close(fd);
}

int __wrap_poll(pollfd* waits, nfds_t count, int limit) {
  server_runs = true;
  expect(count == clients.size() + 2 && (limit == -1) == clients.empty());
  expect(std::none_of(clients.begin(), clients.end(), [](const auto& one) { return one.second.is_over; }));
  now += std::chrono::milliseconds(1);
  return step(waits, count);
}

ssize_t __wrap_recvfrom(int fd, void* buffer, size_t size, int, sockaddr* address, socklen_t*) {
  expect(fd == listener);
  memcpy(address, &sender, sizeof sender);
  return receive(buffer, size);
}

ssize_t __wrap_recv(int fd, void* buffer, size_t size, int) {
  client& from = clients.at(fd);
  if (incoming_error == 0 && incoming.starts_with(acknowledgement_of(from.number))) {
    from.may_go_on = true;
    from.is_over = from.is_last;
  } else if (incoming_error == 0 && incoming.size() >= 4 && word_at(incoming, 0) == 5) {
    from.is_over = true;
  }
  return receive(buffer, size);
}

ssize_t __wrap_sendto(int fd, const void* data, size_t size, int, const sockaddr* address, socklen_t) {
  const std::string bytes(static_cast<const char*>(data), size);
  expect(fd == listener && memcmp(address, &sender, sizeof sender) == 0);
  expect(size > 4 && word_at(bytes, 0) == 5 && bytes.back() == '\0');
  return static_cast<ssize_t>(size);
}

ssize_t __wrap_send(int fd, const void* data, size_t size, int) {
  take_packet(clients.at(fd), {static_cast<const char*>(data), size});
  return static_cast<ssize_t>(size);
}

}  // extern "C"

std::chrono::steady_clock::time_point time_of_server() __asm__("__wrap__ZNSt6chrono3_V212steady_clock3nowEv");
std::chrono::steady_clock::time_point time_of_server() {
  return std::chrono::steady_clock::time_point(now);
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static constexpr size_t sizes[] = {0, 1, 511, 512, 513, 3000, 65464, 200000};
  constexpr size_t size_count = std::size(sizes);
  static const auto files = [] {
    std::vector<std::pair<std::string, std::unique_ptr<input_file>>> made;
    for (const size_t length : sizes) {
      std::string bytes(length, '\0');
      for (size_t i = 0; i < length; ++i) {
        bytes[i] = static_cast<char>(i * 2654435761U >> 24);
      }
      auto file = std::make_unique<input_file>(reinterpret_cast<const uint8_t*>(bytes.data()), length);
      made.emplace_back(std::move(bytes), std::move(file));
    }
    return made;
  }();
  if (size == 0) {
    return 0;
  }
  const auto& [bytes, file] = files[data[0] % size_count];
  contents = bytes;
  next = data + 1;
  end = data + size;
  clients.clear();
  listener = -1;
  { const tftp_server server(file->path(), "image", "10.0.0.1", 69); }
  return 0;
}
