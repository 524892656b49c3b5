// Owner of a stream from fopen().
#pragma once

#include <cstdio>
#include <utility>

class unique_file {
 public:
  unique_file() = default;
  /// Opens `path` as fopen() does. With "e" in `mode` the tools that the shell runs do not inherit it.
  unique_file(const char* path, const char* mode) : stream_(fopen(path, mode)) {}
  unique_file(unique_file&& other) noexcept : stream_(std::exchange(other.stream_, nullptr)) {}
  unique_file& operator=(unique_file&& other) noexcept {
    close();
    stream_ = std::exchange(other.stream_, nullptr);
    return *this;
  }
  ~unique_file() { close(); }

  /// False when it could not be opened; errno tells why.
  explicit operator bool() const { return stream_ != nullptr; }
  FILE* stream() const { return stream_; }

  /// Writes what is still buffered and closes. Result: false with errno when not all could be written; true
  /// also when nothing was open.
  bool close() {
    FILE* stream = std::exchange(stream_, nullptr);
    return stream == nullptr || fclose(stream) == 0;
  }

 private:
  FILE* stream_ = nullptr;
};
