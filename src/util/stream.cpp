// The receive loop: select(), read(), sum, hand on. Meanwhile the descriptor does not block (O_NONBLOCK).
#include "util/stream.h"

#include <fcntl.h>
#include <sys/select.h>
#include <unistd.h>

#include <cerrno>

#include "util/checksum.h"

namespace {

// While it lives, reading from the descriptor does not block.
class nonblocking {
 public:
  explicit nonblocking(int fd) : fd_(fd), flags_(fcntl(fd, F_GETFL)) {
    if (flags_ != -1 && fcntl(fd, F_SETFL, flags_ | O_NONBLOCK) == -1) {
      flags_ = -1;
    }
  }
  nonblocking(const nonblocking&) = delete;
  nonblocking& operator=(const nonblocking&) = delete;
  ~nonblocking() {
    if (flags_ != -1) {
      const int error = errno;
      fcntl(fd_, F_SETFL, flags_);
      errno = error;
    }
  }

  bool holds() const { return flags_ != -1; }

 private:
  int fd_;
  int flags_;
};

}  // namespace

unsigned net_size_to_read(unsigned total, unsigned done) {
  constexpr unsigned steps[] = {stream_piece_size, 1024, 512, 256, 64, 32, 16};
  const unsigned remaining = total - done;
  for (const unsigned step : steps) {
    if (remaining >= step) {
      return step;
    }
  }
  return 1;
}

bool stream_wait(int fd, unsigned seconds) {
  if (fd < 0 || fd >= FD_SETSIZE) {
    errno = EBADF;
    return false;
  }
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(fd, &readable);
  timeval timeout = {};
  timeout.tv_sec = seconds;
  const int ready = select(fd + 1, &readable, nullptr, nullptr, &timeout);
  if (ready == 0) {
    errno = ETIMEDOUT;
  }
  return ready > 0;
}

stream_status stream_receive_into(const stream_source& source, uint64_t* checksum, stream_sink sink,
                                  void* context) {
  if (checksum != nullptr) {
    *checksum = 0;
  }
  checksum_sum sum;
  // Aligned for the sum, which takes words.
  alignas(uint64_t) uint8_t piece[stream_piece_size];
  const nonblocking descriptor(source.fd);
  uint32_t received = 0;
  // Behind a whole piece a pipe mostly holds the next one: it is read without waiting first.
  bool more = false;
  while (received < source.total) {
    if (!more && !stream_wait(source.fd, received == 0 ? source.first_seconds : stream_idle_seconds)) {
      return stream_status::wait_failed;
    }
    const size_t wanted = source.byte_by_byte ? 1 : net_size_to_read(source.total, received);
    const ssize_t got = read(source.fd, piece, wanted);
    more = got == static_cast<ssize_t>(stream_piece_size) && descriptor.holds();
    if (got < 0 && errno == EAGAIN && descriptor.holds()) {
      continue;
    }
    if (got <= 0) {
      errno = got == 0 ? ENODATA : errno;
      return stream_status::ended;
    }
    const auto size = static_cast<size_t>(got);
    if (checksum != nullptr) {
      sum.add(piece, size);
    }
    if (!sink(context, piece, size)) {
      return stream_status::sink_failed;
    }
    received += static_cast<uint32_t>(size);
  }
  if (checksum != nullptr) {
    *checksum = sum.finish();
  }
  return stream_status::complete;
}
