// Reading contents: holes are found with lseek() SEEK_DATA and passed over.
#include "kesto/piece_reader.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace {

// Result: the bytes from the file's position to its next data, or to its end. The position stays.
uint64_t hole_size(int file) {
  const off_t here = lseek(file, 0, SEEK_CUR);
  if (here < 0) {
    return 0;
  }
  off_t data = lseek(file, here, SEEK_DATA);
  if (data < 0 && errno == ENXIO) {
    data = lseek(file, 0, SEEK_END);
  }
  lseek(file, here, SEEK_SET);
  return data > here ? static_cast<uint64_t>(data - here) : 0;
}

}  // namespace

int piece_reader::next(uint64_t limit, file_piece& piece) {
  if (const uint64_t hole = std::min(hole_size(file_), limit); hole != 0) {
    constexpr uint8_t zeros[4] = {};
    sum_.add(zeros, hole % sizeof zeros);  // whole words of zeros add nothing
    piece = {.data = nullptr, .size = hole};
    return lseek(file_, static_cast<off_t>(hole), SEEK_CUR) < 0 ? -1 : 1;
  }
  ssize_t count;
  do {
    count = read(file_, buffer_.get(), static_cast<size_t>(std::min<uint64_t>(buffer_size, limit)));
  } while (count < 0 && errno == EINTR);
  if (count <= 0) {
    return static_cast<int>(count);
  }
  piece = {.data = buffer_.get(), .size = static_cast<uint64_t>(count)};
  sum_.add(piece.data, static_cast<size_t>(count));
  return 1;
}
