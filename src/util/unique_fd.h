// Owner of a file descriptor.
#pragma once

#include <unistd.h>

#include <utility>

class unique_fd {
 public:
  unique_fd() = default;
  explicit unique_fd(int fd) : fd_(fd) {}
  unique_fd(unique_fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  unique_fd& operator=(unique_fd&& other) noexcept {
    reset(std::exchange(other.fd_, -1));
    return *this;
  }
  ~unique_fd() { reset(); }

  explicit operator bool() const { return fd_ >= 0; }
  int get() const { return fd_; }
  int release() { return std::exchange(fd_, -1); }
  void reset(int fd = -1) {
    if (fd_ >= 0) {
      ::close(fd_);
    }
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};
