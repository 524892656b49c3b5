// The CRC is zlib's crc32.
#include "analysis/environment_search.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>

void environment_search::add(const uint8_t* piece, size_t size) {
  while (size > 0) {
    const auto step = static_cast<size_t>(std::min<uint64_t>(size, next_length_ - end_));
    add_within_length(piece, step);
    piece += step;
    size -= step;
    if (end_ == next_length_) {
      if (!found() && crc_ == crc()) {
        found_length_ = end_;
        found_used_ = used_;
      }
      next_length_ *= 2;
    }
  }
}

uint32_t environment_search::crc() const {
  uint32_t crc;
  memcpy(&crc, stored_, sizeof crc);
  return crc;
}

void environment_search::add_within_length(const uint8_t* piece, size_t size) {
  note_used(piece, size);
  while (end_ < sizeof stored_ && size > 0) {
    stored_[end_++] = *piece++;
    --size;
  }
  crc_ = crc32(crc_, piece, static_cast<uInt>(size));
  end_ += size;
}

void environment_search::note_used(const uint8_t* piece, size_t size) {
  for (size_t i = size; i > 0; --i) {
    if (piece[i - 1] != 0xFF) {
      used_ = end_ + i;
      return;
    }
  }
}
