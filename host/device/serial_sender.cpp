// Writes pieces as the line takes them, and reads what comes meanwhile.
#include "device/serial_sender.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "device/failure.h"

namespace {

constexpr size_t buffer_size = 64 << 10;
constexpr milliseconds look{200};

size_t read_at(int file, uint64_t offset, std::string& buffer) {
  for (;;) {
    const ssize_t count = pread(file, buffer.data(), buffer.size(), static_cast<off_t>(offset));
    if (count > 0) {
      return static_cast<size_t>(count);
    }
    if (count == 0 || errno != EINTR) {
      throw device_failure(status_failed,
                           fmt::format("the image cannot be read at offset {} ({})", offset,
                                       count == 0 ? "it has become shorter" : strerror(errno)));
    }
  }
}

// How many bytes the pace allows by now.
uint64_t allowed(const serial_sending& sending, clock_type::time_point begin) {
  if (sending.pace == 0) {
    return sending.size;
  }
  const double elapsed = std::chrono::duration<double>(clock_type::now() - begin).count();
  return static_cast<uint64_t>(elapsed * static_cast<double>(sending.pace)) + 1;
}

}  // namespace

bool serial_send(const serial_sending& sending) {
  std::string buffer(buffer_size, '\0');
  std::string_view piece;
  uint64_t read = 0;
  uint64_t sent = 0;
  const auto begin = clock_type::now();
  auto last_taken = begin;
  while (sent < sending.size) {
    if (piece.empty()) {
      piece = std::string_view(buffer).substr(0, read_at(sending.file, read, buffer));
      read += piece.size();
    }
    const bool may_send = sent < allowed(sending, begin);
    const auto ready = sending.data->wait(true, may_send, may_send ? look : milliseconds(5));
    if (sending.same_line) {
      if (ready.readable && sending.shell->listen(milliseconds(0))) {
        return false;
      }
    } else {
      if (ready.readable) {
        sending.data->take();
      }
      if (sending.shell->listen(milliseconds(0))) {
        return false;
      }
    }
    size_t taken = 0;
    if (ready.writable) {
      const uint64_t most = allowed(sending, begin) - std::min(sent, allowed(sending, begin));
      taken = sending.data->write_some(
          piece.substr(0, static_cast<size_t>(std::min<uint64_t>(piece.size(), most))));
      piece.remove_prefix(taken);
      sent += taken;
      sending.progress(sent);
    }
    const auto now = clock_type::now();
    if (taken != 0 || !may_send) {
      last_taken = now;
    } else if (now - last_taken > sending.patience) {
      throw device_failure(
          status_line_lost,
          fmt::format("{}: takes no more after {} of {} bytes; is RTS/CTS wired? (--no-flow)",
                      sending.data->name(), sent, sending.size));
    }
  }
  return true;
}
