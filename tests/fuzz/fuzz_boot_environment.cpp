// The search for a boot environment: the contents of a partition in pieces, against the search as one would
// write it first. Byte 0: how the contents are cut; byte 1: at which length the CRC is made good, if at all.
#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "analysis/environment_search.h"
#include "fuzz_input.h"

namespace {

uint32_t crc_of(const std::vector<uint8_t>& bytes, size_t length) {
  return static_cast<uint32_t>(crc32(0, bytes.data() + 4, static_cast<uInt>(length - 4)));
}

uint32_t stored_crc(const std::vector<uint8_t>& bytes) {
  uint32_t crc;
  memcpy(&crc, bytes.data(), sizeof crc);
  return crc;
}

size_t plain_search(const std::vector<uint8_t>& bytes) {
  for (size_t length = 2048; length <= bytes.size(); length *= 2) {
    if (crc_of(bytes, length) == stored_crc(bytes)) {
      return length;
    }
  }
  return 0;
}

size_t plain_used(const std::vector<uint8_t>& bytes, size_t length) {
  while (length > 0 && bytes[length - 1] == 0xFF) {
    --length;
  }
  return length;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) {
    return 0;
  }
  // Erased flash behind the input, for lengths that inputs do not reach.
  std::vector<uint8_t> bytes(data + 2, data + size);
  constexpr size_t erased[] = {0,    16,   256,  1024, 2032, 2048,  2064,  3072,
                               4096, 5120, 6144, 8176, 8192, 16384, 32768, 65536};
  bytes.resize(bytes.size() + erased[data[1] >> 4], 0xFF);
  const size_t good_length = size_t{1024} << (data[1] & 0x07);
  if (good_length <= bytes.size()) {
    const uint32_t crc = crc_of(bytes, good_length);
    memcpy(bytes.data(), &crc, sizeof crc);
  }
  environment_search search;
  const size_t piece = data[0] == 0 ? 1024 : data[0] * size_t{7};
  for (size_t done = 0; done < bytes.size(); done += piece) {
    search.add(bytes.data() + done, std::min(piece, bytes.size() - done));
  }
  const size_t expected = plain_search(bytes);
  if (search.length() != expected || search.found() != (expected != 0)) {
    abort();
  }
  if (expected != 0 && (search.used() != plain_used(bytes, expected) || search.crc() != stored_crc(bytes))) {
    abort();
  }
  return 0;
}
