// Owner of memory from malloc().
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

class heap_buffer {
 public:
  /// Takes `size` bytes, at least one, with undefined content.
  explicit heap_buffer(size_t size) : data_(static_cast<uint8_t*>(malloc(size != 0 ? size : 1))) {}
  heap_buffer(const heap_buffer&) = delete;
  heap_buffer& operator=(const heap_buffer&) = delete;
  ~heap_buffer() { free(data_); }

  /// False when there was no memory; errno tells.
  explicit operator bool() const { return data_ != nullptr; }
  uint8_t* data() const { return data_; }

 private:
  uint8_t* data_;
};
