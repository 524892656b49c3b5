/* The checksum of the boot environment and of the list of files: CRC-32 as in IEEE 802.3. */
#pragma once

#include <stddef.h>

/* The sum of what `sum` was taken of, followed by `data`. Of nothing it is 0. */
unsigned int crc32(unsigned int sum, const unsigned char* data, size_t length);
