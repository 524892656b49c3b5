// What the fuzz targets share: the input as a file, and silence.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "util/log.h"
#include "util/text_buffer.h"
#include "util/unique_fd.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

/// All messages are formatted, none is shown.
inline void run_all_messages_silently() {
  static FILE* const nowhere = freopen("/dev/null", "w", stdout);
  (void)nowhere;
  log_level = level_trace;
}

/// An input that the code under test opens by its path.
class input_file {
 public:
  input_file(const uint8_t* data, size_t size) : fd_(memfd_create("input", 0)) {
    size_t done = 0;
    while (done < size) {
      const ssize_t written = write(fd_.get(), data + done, size - done);
      if (written <= 0) {
        break;
      }
      done += static_cast<size_t>(written);
    }
    lseek(fd_.get(), 0, SEEK_SET);
    path_.format("/proc/self/fd/%d", fd_.get());
  }
  const char* path() const { return path_.text(); }
  int fd() const { return fd_.get(); }

 private:
  unique_fd fd_;
  text_buffer<32> path_;
};
