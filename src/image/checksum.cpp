// See checksum.h.
#include "image/checksum.h"

#include "util/checksum.h"

namespace {

checksum_sum running;

}  // namespace

uint32_t image_checksum(const void* buffer, size_t length) {
  checksum_sum sum;
  sum.add(buffer, length);
  return static_cast<uint32_t>(sum.finish());
}

void image_checksum_chunks_start() {
  running = checksum_sum();
}

void image_checksum_chunks_calc(const void* buffer, size_t length) {
  running.add(buffer, length);
}

uint32_t image_checksum_chunks_end() {
  return static_cast<uint32_t>(running.finish());
}
