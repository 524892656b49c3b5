// Reading the contents of a part. File system images have holes of any size; they are passed over, not read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "util/checksum.h"

struct file_piece {
  const uint8_t* data;  // null for a hole, which holds zeros
  uint64_t size;
};

class piece_reader {
 public:
  /// Reads `file` from its present position on. A file that cannot be positioned is read just as well.
  explicit piece_reader(int file) : file_(file) {}

  /// Takes the next piece of at most `limit` bytes (at least 1); its data are valid until the next call.
  /// Result: 1, 0 at the end of the file, or -1 with errno set.
  int next(uint64_t limit, file_piece& piece);

  /// The image checksum of all pieces taken so far.
  uint32_t checksum() const { return static_cast<uint32_t>(sum_.finish()); }

 private:
  static constexpr size_t buffer_size = size_t{256} * 1024;

  int file_;
  std::unique_ptr<uint8_t[]> buffer_ = std::make_unique<uint8_t[]>(buffer_size);
  checksum_sum sum_;
};
