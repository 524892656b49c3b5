// What an analysis finds out about one partition.
#pragma once

#include <cstdint>

struct flash_analysis {
  uint64_t size;     // bytes in use
  uint32_t crc;      // checksum of the contents, 0 when not known
  uint8_t clean;     // shown as clean; no analysis sets it
  char version[16];  // "-" when not known; not terminated when all 16 are in use
  char code[4];      // "-" when not known; not terminated when all 4 are in use
};
