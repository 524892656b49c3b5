// What kesto reads from a device that it looks at, and all that is made of it, up to the judgement on an
// image, the record and the picture. Byte 0: whether the device behaves as a shell does; then its answers.
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>

#include "device/device_state.h"
#include "device/failure.h"
#include "fuzz_device.h"
#include "fuzz_input.h"
#include "image/header.h"
#include "kesto/device_json.h"
#include "kesto/device_record.h"
#include "kesto/flash_picture.h"
#include "kesto/image_check.h"

namespace {

image_part part_of_type(uint32_t type) {
  image_part part;
  image_header_set(part.header, image_field_contents_type, type);
  return part;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  run_all_messages_silently();
  if (size == 0) {
    return 0;
  }
  at_end_of_line.begin({reinterpret_cast<const char*>(data + 1), size - 1}, data[0] % 4 != 0);
  line wire({.text = "line"}, {});
  shell_session shell(wire);
  try {
    shell.find_prompt(seconds(5));
    const device_state state = device_read(shell, seconds(5));
    const std::string text =
        device_state_json(state).dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    std::string fault;
    const auto record = device_record_from_json(nlohmann::json::parse(text), &fault);
    if (!record) {
      abort();  // kesto does not understand what it wrote
    }
    image_check({part_of_type(image_contents_kernel), part_of_type(image_contents_rootfs_ubifs_128keb)},
                mtd_bank_2, image_way_any, &*record);
    flash_picture(state);
  } catch (const device_failure& failure) {
    if (failure.what()[0] == '\0' || failure.status() == status_success) {
      abort();
    }
  }
  return 0;
}
