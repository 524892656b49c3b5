// An image file, walked by length.
#include "fuzz_image_input.h"
#include "image/file_installation.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  run_all_messages_silently();
  const image_input image(data, size);
  image_validate(input_file(image.data(), image.size()).path());
  return 0;
}
