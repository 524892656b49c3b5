// The checksum of firmware images: the complement of the ones'-complement sum of big-endian 32-bit words,
// the last word padded with zero bytes.
#pragma once

#include <cstddef>
#include <cstdint>

/// A checksum over data that arrives in pieces of any length. The sum does not depend on how the data were
/// cut. It holds for up to 2^34 bytes.
class checksum_sum {
 public:
  /// Adds `size` bytes that follow those added before.
  void add(const void* data, size_t size);
  /// Result: the complement of the folded 64-bit sum of all bytes added so far: the checksum in the low 32
  /// bits. The others are set, but for bit 32 where the first fold carried.
  uint64_t finish() const;

 private:
  uint64_t sum_ = 0;
  unsigned phase_ = 0;  // bytes of the current word that were added already, 0..3
};

/// Result: the checksum of `length` bytes; 0xFFFFFFFF for none.
uint32_t image_checksum(const void* buffer, size_t length);

/// The same over data in pieces. There is one computation at a time in the process; a second start drops
/// the first.
void image_checksum_chunks_start();
void image_checksum_chunks_calc(const void* buffer, size_t length);
uint32_t image_checksum_chunks_end();
