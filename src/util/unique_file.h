// Owner of a stream from fopen().
#pragma once

#include <cstdio>
#include <utility>

class unique_file {
 public:
  unique_file() = default;
  /// Opens `path` as fopen() does. With "e" in `mode` the tools that the shell runs do not inherit it.
  unique_file(const char* path, const char* mode) : stream_(fopen(path, mode)) {}
  unique_file(const unique_file&) = delete;
  unique_file& operator=(const unique_file&) = delete;
  ~unique_file() { close(); }

  /// False when nothing is open; after opening in vain errno tells why.
  explicit operator bool() const { return stream_ != nullptr; }
  FILE* stream() const { return stream_; }

  /// Opens a file while none is. Result: true, or false with errno.
  bool open(const char* path, const char* mode) { return (stream_ = fopen(path, mode)) != nullptr; }
  /// Writes what is still buffered and closes. Result: false with errno when not all could be written; true
  /// also when nothing was open.
  bool close() {
    FILE* stream = std::exchange(stream_, nullptr);
    return stream == nullptr || fclose(stream) == 0;
  }

 private:
  FILE* stream_ = nullptr;
};
