// What an analysis finds out about a partition.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

struct flash_analysis {
  uint64_t size;     // bytes in use
  uint32_t crc;      // of the contents, or the header's own for a part with a header; 0 when not known
  uint8_t clean;     // 1 = shown as clean; no analysis sets it
  char version[16];  // "-" when not known; not terminated when all 16 are in use
  char code[4];      // "-" when not known; not terminated when all 4 are in use
};

/// Fills a text of the record: with as much of `text` as fits, and zeroes behind it.
template <size_t Size>
void analysis_set_text(char (&field)[Size], const char* text) {
  memset(field, 0, Size);
  memcpy(field, text, strnlen(text, Size));
}

/// Fills both texts.
inline void analysis_set_identity(flash_analysis* record, const char* version, const char* code) {
  analysis_set_text(record->version, version);
  analysis_set_text(record->code, code);
}
