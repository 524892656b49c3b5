// The checksum of image headers and contents; the sum itself is util/checksum.h.
#pragma once

#include <cstddef>
#include <cstdint>

/// Result: the checksum of `length` bytes; 0xFFFFFFFF for none.
uint32_t image_checksum(const void* buffer, size_t length);

/// The same over data in pieces. There is one computation at a time in the process; a second start drops
/// the first.
void image_checksum_chunks_start();
void image_checksum_chunks_calc(const void* buffer, size_t length);
uint32_t image_checksum_chunks_end();
