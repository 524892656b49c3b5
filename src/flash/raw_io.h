// Bytes into and out of whole MTD partitions that hold raw data. Erasing, locking, copying and dumping are
// done by the standard MTD tools; buffers and streams go through the device node.
//
// Everywhere `type` is an mtd_types value and only a `protect` of 1 means protected: such a partition is
// unlocked before each change and locked again after it on every way out. A failed unlock locks at once and
// fails; a failed lock turns success into failure.
#pragma once

#include <cstddef>
#include <cstdint>

/// Erases all blocks. Result: 1, or 0 after the runner's error.
int flash_erase_whole_partition(const char* dev_name, int type, int protect);

/// Erases, then copies a file. Result: 1, or 0 after an error; the partition is left erased or partly
/// written.
int flash_write_file(const char* dev_name, int protect, int type, const char* file_path);

/// Erases, writes `length` bytes in chunks of 1024 and reads them back, the latter also when the writing
/// failed, to report how far the flash matches. Result: 1 when both passes completed, else 0 after an error.
int flash_write_buffer(const char* dev_name, int protect, int type, const uint8_t* buffer, size_t length);

/// Streams `length` bytes received from `fd` into the partition as they arrive, behind the 256 bytes of
/// `header` unless it is null. The partition is erased first when `erase_first` is 1 and must be erased
/// already when not. A sender silent for 3 seconds fails. A short or failed write to the flash does not: the
/// caller compares `*checksum` (unless null), the image checksum of the received bytes in its low 32 bits
/// without the header. Result: 1, or 0 after an error.
int flash_write_buffer_fd(const char* dev_name, int protect, int type, int fd, const uint8_t* header,
                          uint32_t length, int erase_first, uint64_t* checksum);

/// Dumps the partition to a file. Result: 1, or 0 after an error.
int flash_read_file(const char* dev_name, int type, const char* file_path);

/// Reads `size` bytes at `offset` of the open partition `fd`. Result: true, or false after an error that
/// names `dev_name` and the offset.
bool flash_read_at(int fd, const char* dev_name, uint64_t offset, void* buffer, size_t size);
