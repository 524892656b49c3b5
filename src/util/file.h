// Received data into files, and the paths of downloaded files.
#pragma once

#include <cstddef>
#include <cstdint>

/// Creates or truncates `path` and writes `length` bytes. Result: 1, or 0 after an error with the path and
/// the system's text; a short write is an error and leaves the partial file.
int file_create_from_buffer(const char* path, const void* buffer, size_t length);

/// Creates or truncates `path`, writes the 256 bytes of `header` unless it is null, then `total` bytes
/// received from `fd`; a sender silent for 3 seconds has stopped. With `checksum` the image checksum of the
/// received bytes (without the header) is left there. Result: 1, or 0 after an error; the partial file stays.
int file_create_from_fd(const char* path, int fd, const uint8_t* header, uint32_t total, uint64_t* checksum);

/// Looks for `path` every second, `seconds` + 1 times, sleeping after each miss. Result: 1 once it exists,
/// else 0.
int file_wait_until_present(const char* path, int seconds);

/// Builds the path of a file name: one that begins with '/' as it is, any other below `directory`. Result: 1
/// when it fits `size` bytes with its terminator, else 0 (also for a null name, or a null directory that is
/// needed).
int filename_copy_and_maybe_add_path(char* out, size_t size, const char* directory, const char* name);
