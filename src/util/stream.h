// Receiving a known number of bytes from a descriptor: the one loop behind everything that flows from a
// serial line or a download pipe into a file, a flash partition or a tool.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

/// Pieces are read into one buffer of this many bytes.
constexpr size_t stream_piece_size = 4096;
/// A sender that is silent for this many seconds in the middle of a transfer has stopped.
constexpr unsigned stream_idle_seconds = 3;
/// Every part of a firmware image begins with a header of this many bytes (docs/image-format.md). It is known
/// here because whatever stores a stream can be given the header to store in front of it.
constexpr uint32_t image_header_size = 256;

/// Result: how many bytes to ask for next when `done` of `total` were received: the largest of 4096, 1024,
/// 512, 256, 64, 32, 16 that does not exceed the rest, and 1 below 16 (also when nothing remains).
unsigned net_size_to_read(unsigned total, unsigned done);

/// Waits up to `seconds` for `fd` to become readable. Result: true when it is; false with errno set, which
/// is ETIMEDOUT when the time has passed.
bool stream_wait(int fd, unsigned seconds);

enum class stream_status {
  complete,
  wait_failed,  // no byte in time, or the wait failed; errno tells
  ended,        // end of input or a failed read; errno tells, ENODATA for the end
  sink_failed,  // the receiver refused a piece
};

struct stream_source {
  int fd;
  uint32_t total;                                // bytes to receive
  unsigned first_seconds = stream_idle_seconds;  // longest wait for the first piece
  bool byte_by_byte = false;                     // ask for single bytes, to leave all others in the line
};

/// A receiver of pieces. Result: false to end the transfer.
using stream_sink = bool (*)(void* context, const uint8_t* piece, size_t size);

/// Receives `source.total` bytes, handing every piece on as it arrives. Never asks for more than remains, so
/// bytes after the total stay in the descriptor, which is switched to O_NONBLOCK meanwhile. With `checksum`
/// the image checksum of the received bytes is left there (0 unless complete). Logs nothing.
stream_status stream_receive_into(const stream_source& source, uint64_t* checksum, stream_sink sink,
                                  void* context);

/// The same with any callable bool(const uint8_t* piece, size_t size).
template <typename Sink>
stream_status stream_receive(const stream_source& source, uint64_t* checksum, Sink sink) {
  const auto call = [](void* context, const uint8_t* piece, size_t size) {
    return (*static_cast<Sink*>(context))(piece, size);
  };
  return stream_receive_into(source, checksum, call, &sink);
}
