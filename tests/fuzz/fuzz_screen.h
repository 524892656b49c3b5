// What the shell shows, and the other end of its console: standard output and input as the fuzz targets have
// them.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

/// Everything that went to standard output since it was last cleared.
inline std::string shown;

/// Standard output goes to `shown` from now on. Standard input is not the terminal of who runs the fuzzer.
inline void show_on_screen() {
  static FILE* const screen = [] {
    cookie_io_functions_t functions = {};
    functions.write = [](void* /*cookie*/, const char* bytes, size_t count) {
      shown.append(bytes, count);
      return static_cast<ssize_t>(count);
    };
    if (freopen("/dev/null", "r", stdin) == nullptr) {
      abort();
    }
    return fopencookie(nullptr, "w", functions);
  }();
  stdout = screen;
  shown.clear();
}
