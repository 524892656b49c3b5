// Received data into a new file.
#pragma once

#include <cstddef>
#include <cstdint>

/// Creates or truncates `path` and writes `length` bytes. Result: true, or false after an error with the path
/// and the system's text; a short write is an error. The partial file stays.
bool file_create_from_buffer(const char* path, const void* buffer, size_t length);

/// Creates or truncates `path`, writes the header of image_header_size bytes unless it is null, then `total`
/// bytes received from `fd`; a sender that is silent for 3 seconds has stopped. With `checksum` the image
/// checksum of the received bytes, without the header, is left there. Result: true, or false after an error;
/// the partial file stays.
bool file_create_from_fd(const char* path, int fd, const uint8_t* header, uint32_t total, uint64_t* checksum);
