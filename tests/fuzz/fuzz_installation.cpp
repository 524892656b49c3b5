// What kesto reads from a device while it installs an image there: it looks at the device, erases, sends,
// reads back and waits for what boots. Byte 0: whether the device behaves as a shell does; byte 1: the
// installation's options; then the device's answers. An installation is good only if the device said so.
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz_device.h"
#include "fuzz_input.h"
#include "image/header.h"
#include "kesto/installation.h"

namespace {

constexpr size_t kernel_size = 4096;

// An image with a kernel, as kesto has verified it.
const verified_image& image_to_install() {
  static const std::string bytes(image_header_size + kernel_size, 'k');
  static const input_file file(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  static const verified_image image = [] {
    image_part part;
    image_header_set(part.header, image_field_contents_type, image_contents_kernel);
    image_header_set(part.header, image_field_contents_length, kernel_size);
    memcpy(part.header + image_field_contents_version, "\3\1\0\0R\1", 6);
    memcpy(part.header + image_field_product_code, "F7", 2);
    return verified_image{.path = file.path(), .size = bytes.size(), .parts = {part}, .first_words = {0}};
  }();
  return image;
}

install_options options_of(unsigned choices) {
  install_options options;
  options.ports = {"/dev/ttyUSB0"};
  options.limit_seconds = 5;
  options.install_limit_seconds = 20;
  options.boot_limit_seconds = 40;
  options.tftp_address = (choices & 1) != 0 ? "10.0.0.1" : "";
  options.tftp_file = "image";
  options.erase = (choices & 2) != 0;
  options.check = (choices & 4) != 0;
  options.boot = (choices & 8) != 0;
  options.expect = (choices & 16) != 0 ? "login:" : "";
  options.bank = (choices & 32) != 0 ? "2" : "";
  options.pace = (choices & 64) != 0 ? 1 << 20 : 0;
  if ((choices & 128) != 0) {
    options.forced = {"not-erased"};
  }
  return options;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  run_all_messages_silently();
  if (size < 2) {
    return 0;
  }
  at_end_of_line.begin({reinterpret_cast<const char*>(data + 2), size - 2}, data[0] % 4 != 0);
  const install_options options = options_of(data[1]);
  progress_board progress(options.ports, true);
  device_installation job(options, image_to_install(), nullptr, 0, progress);
  try {
    job.prepare();
    job.perform();
    if (at_end_of_line.answers().find("Done: SUCCESS") == std::string::npos) {
      abort();
    }
    if (options.boot && job.record().booted.empty()) {
      abort();
    }
  } catch (const device_failure& failure) {
    if (failure.what()[0] == '\0' || failure.status() == status_success) {
      abort();
    }
  }
  return 0;
}
