// Owner of a read-only mapping of a whole file.
#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>

class mapped_file {
 public:
  /// Maps `size` bytes (at least 1) of the open file `fd`; the descriptor may be closed afterwards.
  mapped_file(int fd, size_t size) : size_(size) {
    void* address = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
    data_ = address == MAP_FAILED ? nullptr : static_cast<const uint8_t*>(address);
  }
  mapped_file(const mapped_file&) = delete;
  mapped_file& operator=(const mapped_file&) = delete;
  ~mapped_file() {
    if (data_ != nullptr) {
      munmap(const_cast<uint8_t*>(data_), size_);
    }
  }

  /// False when the mapping failed; errno tells why.
  explicit operator bool() const { return data_ != nullptr; }
  const uint8_t* data() const { return data_; }
  size_t size() const { return size_; }

 private:
  const uint8_t* data_;
  size_t size_;
};
