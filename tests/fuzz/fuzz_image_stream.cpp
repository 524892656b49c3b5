// An image stream, checked part by part. Its end is at once an end of input, so that no time-out is waited
// for.
#include "fuzz_image_input.h"
#include "image/stream_installation.h"
#include "mtd/partition_table.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  run_all_messages_silently();
  const image_input image(data, size);
  const input_file stream(image.data(), image.size());
  image_get_headers_fd(stream.fd(), mtd_bank_1, 0x7D3E, "/dev/null");
  return 0;
}
