// What a file of the kernel holds: with CMakeLists.txt's --wrap, whatever the code under test opens as a
// stream is the input.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "fuzz_input.h"

/// The contents of every file that is opened while it is set; null: files are what they are.
inline const std::string* opened_contents = nullptr;
/// Where reading goes on.
inline size_t opened_position = 0;

extern "C" FILE* __real_fopen64(const char* path, const char* mode);
// Not inline: only the linker knows that it is called. A program has one target.
extern "C" FILE* __wrap_fopen64(const char* path, const char* mode) {
  if (opened_contents == nullptr) {
    return __real_fopen64(path, mode);
  }
  opened_position = 0;
  cookie_io_functions_t functions = {};
  functions.read = [](void* /*cookie*/, char* buffer, size_t size) {
    const size_t count = std::min(size, opened_contents->size() - opened_position);
    memcpy(buffer, opened_contents->data() + opened_position, count);
    opened_position += count;
    return static_cast<ssize_t>(count);
  };
  return fopencookie(nullptr, "r", functions);
}

/// While it lives, every file that is opened holds the input.
class opened_input {
 public:
  opened_input(const uint8_t* data, size_t size) : text_(reinterpret_cast<const char*>(data), size) {
    opened_contents = &text_;
  }
  opened_input(const opened_input&) = delete;
  opened_input& operator=(const opened_input&) = delete;
  ~opened_input() { opened_contents = nullptr; }
  const std::string& text() const { return text_; }

 private:
  std::string text_;
};
