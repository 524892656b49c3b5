// A header in memory: verified, printed, and left as it was.
#include <cstdlib>
#include <cstring>

#include "fuzz_input.h"
#include "image/header.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  run_all_messages_silently();
  uint8_t header[image_header_size] = {};
  const size_t length = size < sizeof header ? size : sizeof header;
  memcpy(header, data, length);
  uint8_t before[image_header_size];
  memcpy(before, header, sizeof header);
  image_header_verify(header, static_cast<uint32_t>(length), 0);
  image_print_info(header);
  if (memcmp(before, header, sizeof header) != 0) {
    abort();
  }
  return 0;
}
