// Reading a raw partition.
#pragma once

#include <cstddef>
#include <cstdint>

#include "flash/raw_partition.h"

/// Dumps the whole partition to a file. Result: true, or false after an error.
bool flash_read_file(const mtd_partition& row, const char* file_path);
/// The same for a partition described by its node and mtd_types value.
inline bool flash_read_file(const char* dev_name, int type, const char* file_path) {
  return flash_read_file(flash_row(dev_name, type, 0), file_path);
}

/// Asks the driver for the size of an open partition in bytes. Result: false when it does not tell, or when
/// `device` is not open; errno tells why.
bool flash_query_size(const unique_fd& device, uint32_t* size);

/// Moves to byte `offset` of the open partition `fd`. Result: true, or false after an error that names
/// `dev_name` and the offset.
bool flash_seek(int fd, const char* dev_name, uint64_t offset);

/// Reads exactly `size` bytes at byte `offset` of the open partition `fd`. Result: as above.
bool flash_read_at(int fd, const char* dev_name, uint64_t offset, void* buffer, size_t size);
