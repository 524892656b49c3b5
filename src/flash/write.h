// Writing a raw partition: from a file, from memory with verification, or from a stream as it arrives.
//
// A protected partition is unlocked for each change and locked again after it on every way out. A partition
// that is neither serial nor nand flash is refused with an error, after the erase where there is one. Every
// operation answers true, or false after an error; the partition is then left erased or partly written.
#pragma once

#include <cstddef>
#include <cstdint>

#include "flash/raw_partition.h"

/// Erases, then copies a file.
bool flash_write_file(const mtd_partition& row, const char* file_path);

/// Erases, writes `length` bytes in chunks of 1024, then reads all of it back and compares, also when the
/// writing failed: the errors tell how far the flash matches.
bool flash_write_buffer(const mtd_partition& row, const uint8_t* buffer, size_t length);

/// Writes `length` bytes received from `fd` as they arrive, behind the 256 bytes of `header` unless it is
/// null. Without `erase_first` the partition must have been erased. A sender that is silent for 3 seconds is
/// an error; a short or failed write to the flash is not. In `*checksum` (unless null) the image checksum of
/// the received bytes is left, without the header, in its low 32 bits.
bool flash_write_buffer_fd(const mtd_partition& row, int fd, const uint8_t* header, uint32_t length,
                           bool erase_first, uint64_t* checksum);

/// The same for a partition described by its node, mtd_types value and protect flag; only an `erase_first` of
/// 1 erases.
inline bool flash_write_file(const char* dev_name, int protect, int type, const char* file_path) {
  return flash_write_file(flash_row(dev_name, type, protect), file_path);
}
inline bool flash_write_buffer(const char* dev_name, int protect, int type, const uint8_t* buffer,
                               size_t length) {
  return flash_write_buffer(flash_row(dev_name, type, protect), buffer, length);
}
inline bool flash_write_buffer_fd(const char* dev_name, int protect, int type, int fd, const uint8_t* header,
                                  uint32_t length, int erase_first, uint64_t* checksum) {
  return flash_write_buffer_fd(flash_row(dev_name, type, protect), fd, header, length, erase_first == 1,
                               checksum);
}
