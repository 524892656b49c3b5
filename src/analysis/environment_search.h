// Finds a boot environment in a partition: a CRC in front of variables, over a power of two of bytes that the
// partition need not fill.
#pragma once

#include <cstddef>
#include <cstdint>

/// Takes the contents of a partition in pieces of any length. The first length at which the CRC fits counts.
class environment_search {
 public:
  void add(const uint8_t* piece, size_t size);

  bool found() const { return found_length_ != 0; }
  /// Of an environment that was found: its length, its bytes up to the last that is not erased, its CRC.
  uint64_t length() const { return found_length_; }
  uint64_t used() const { return found_used_; }
  uint32_t crc() const;

 private:
  void add_within_length(const uint8_t* piece, size_t size);
  void note_used(const uint8_t* piece, size_t size);

  uint8_t stored_[4] = {};       // the CRC, in the order of the processor
  unsigned long crc_ = 0;        // of the bytes behind it
  uint64_t end_ = 0;             // bytes seen
  uint64_t used_ = 0;            // bytes up to the last that is not erased
  uint64_t next_length_ = 2048;  // the next length to try
  uint64_t found_length_ = 0;
  uint64_t found_used_ = 0;
};
