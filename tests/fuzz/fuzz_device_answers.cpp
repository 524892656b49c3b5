// What kesto reads from a device: a line that answers each command with a piece of the input, and all that is
// made of it, up to the judgement on an image, the record and the picture. Byte 0: whether the device behaves
// as a shell does, with echo and prompt, or just sends. Pieces end at a zero byte. Time passes only while
// kesto waits.
#include <chrono>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>

#include "device/device_state.h"
#include "device/failure.h"
#include "fuzz_input.h"
#include "image/header.h"
#include "kesto/device_json.h"
#include "kesto/device_record.h"
#include "kesto/flash_picture.h"
#include "kesto/image_check.h"

namespace {

std::chrono::nanoseconds now{};

// The device at the other end.
std::string answers;
size_t next_answer;
bool is_shell;
std::string typed;
std::string unread;

std::string take_answer() {
  const size_t end = std::min(answers.find('\0', next_answer), answers.size());
  std::string text = answers.substr(std::min(next_answer, end), end - std::min(next_answer, end));
  next_answer = end + 1;
  return text;
}

void take_key(char key) {
  if (!is_shell) {
    unread += key == '\r' ? take_answer() : "";
  } else if (key == '\r') {
    unread += "\r\n" + take_answer() + "\r\nCLI> ";
    typed.clear();
  } else if (key == '\x03') {
    unread += "\r\nCLI> ";
    typed.clear();
  } else {
    unread += key;
  }
}

image_part part_of_type(uint32_t type) {
  image_part part;
  image_header_set(part.header, image_field_contents_type, type);
  return part;
}

}  // namespace

// In place of steady_clock::now().
std::chrono::steady_clock::time_point time_of_kesto() __asm__("__wrap__ZNSt6chrono3_V212steady_clock3nowEv");
std::chrono::steady_clock::time_point time_of_kesto() {
  now += std::chrono::microseconds(1);
  return std::chrono::steady_clock::time_point(now);
}

line::line(const port_name& name, const line_settings& /*settings*/) : name_(name) {}
line::~line() = default;
line::readiness line::wait(bool, bool, milliseconds) {
  return {!unread.empty(), true};
}
std::string line::take() {
  return std::exchange(unread, "");
}
std::string line::read(milliseconds limit) {
  if (unread.empty()) {
    now += limit;
  }
  return take();
}
void line::write(std::string_view data, milliseconds /*limit*/) {
  for (const char key : data) {
    take_key(key);
  }
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  run_all_messages_silently();
  if (size == 0) {
    return 0;
  }
  is_shell = data[0] % 4 != 0;
  answers.assign(reinterpret_cast<const char*>(data + 1), size - 1);
  next_answer = 0;
  typed.clear();
  unread = is_shell ? "" : take_answer();
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
