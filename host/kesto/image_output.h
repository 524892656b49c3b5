// The image file that is being built. It comes into being under another name and takes its own only when it
// is complete, so that nobody ever sends half an image. One that was not finished is removed, also by a
// signal.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "kesto/unfinished.h"
#include "util/unique_fd.h"

class image_output {
 public:
  /// Chooses the file; a symbolic link stands for the file behind it. Result: false after an error, if `path`
  /// exists and is no regular file.
  bool choose(const char* path);
  /// Result: true when `file` is the very file that is to be replaced.
  bool replaces(const struct stat& file) const;
  /// Creates the file under its temporary name. Result: false after an error. All further results alike.
  bool create();
  /// Leaves `size` bytes to write_at(). Result: their offset.
  uint64_t reserve(uint64_t size);
  /// Writes behind all that is there, zeros if `data` is null. Zeros become a hole where the file system has
  /// them.
  bool append(const uint8_t* data, uint64_t size);
  bool write_at(uint64_t offset, const uint8_t* data, size_t size);
  /// Gives the file its name.
  bool finish();

  uint64_t size() const { return size_; }

 private:
  bool failed(const char* what) const;

  std::string name_;  // as given, for messages
  std::string path_;
  std::optional<unfinished_path> temporary_;
  struct stat replaced_ = {};  // st_nlink is 0 when nothing is replaced
  unique_fd file_;
  uint64_t size_ = 0;
};
