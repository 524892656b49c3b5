// A device at the other end of kesto's line: the line, the device and the time are the fuzzer's. It answers
// each command with a piece of the input; pieces end at a zero byte. Time passes only while kesto waits.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>
#include <utility>

#include "device/line.h"

inline std::chrono::nanoseconds fuzz_now{};

// In place of steady_clock::now(): CMakeLists.txt puts it there.
std::chrono::steady_clock::time_point time_of_kesto() __asm__("__wrap__ZNSt6chrono3_V212steady_clock3nowEv");
std::chrono::steady_clock::time_point time_of_kesto() {
  fuzz_now += std::chrono::microseconds(1);
  return std::chrono::steady_clock::time_point(fuzz_now);
}

class fuzz_device {
 public:
  /// `behaves`: as a shell does, with echo and prompt; else it just sends.
  void begin(std::string answers, bool behaves) {
    answers_ = std::move(answers);
    behaves_ = behaves;
    next_ = 0;
    is_at_work_ = false;
    unread_ = behaves_ ? "" : take_answer();
  }
  /// All that it was to say.
  const std::string& answers() const { return answers_; }
  bool has_said() const { return !unread_.empty(); }
  std::string take() { return std::exchange(unread_, ""); }

  void press(char key) {
    if (!behaves_) {
      unread_ += key == '\r' ? take_answer() : "";
    } else if (is_at_work_) {
      // Who sends an image hears no echo.
    } else if (key == '\r') {
      unread_ += "\r\n";
      go_on();
    } else if (key == '\x03') {
      unread_ += "\r\nCLI> ";
    } else {
      unread_ += key;
    }
  }
  /// While kesto waits a command goes on, from piece to piece.
  void pass_time() {
    if (is_at_work_ && next_ <= answers_.size()) {
      go_on();
    }
  }

 private:
  // A piece that ends with a byte 2 is not the end of its command.
  void go_on() {
    const std::string piece = take_answer();
    is_at_work_ = piece.ends_with('\2');
    unread_ += is_at_work_ ? piece.substr(0, piece.size() - 1) : piece + "\r\nCLI> ";
  }
  std::string take_answer() {
    const size_t begin = std::min(next_, answers_.size());
    const size_t end = std::min(answers_.find('\0', begin), answers_.size());
    next_ = end + 1;
    return answers_.substr(begin, end - begin);
  }

  std::string answers_;
  size_t next_ = 0;
  bool behaves_ = false;
  bool is_at_work_ = false;
  std::string unread_;
};

inline fuzz_device at_end_of_line;

line::line(const port_name& name, const line_settings& /*settings*/) : name_(name) {}
line::~line() = default;
line::readiness line::wait(bool for_reading, bool for_writing, milliseconds limit) {
  if (for_reading && !at_end_of_line.has_said()) {
    at_end_of_line.pass_time();
  }
  if (!at_end_of_line.has_said() && !for_writing) {
    fuzz_now += limit;
  }
  return {at_end_of_line.has_said(), for_writing};
}
std::string line::take() {
  return at_end_of_line.take();
}
std::string line::read(milliseconds limit) {
  if (!at_end_of_line.has_said()) {
    at_end_of_line.pass_time();
  }
  if (!at_end_of_line.has_said()) {
    fuzz_now += limit;
  }
  return take();
}
size_t line::write_some(std::string_view data) {
  for (const char key : data) {
    at_end_of_line.press(key);
  }
  return data.size();
}
void line::write(std::string_view data, milliseconds /*limit*/) {
  write_some(data);
}
void line::discard_unsent() {}
