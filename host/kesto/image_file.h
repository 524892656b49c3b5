// An image file on this computer, read part by part. Unlike the device's walk it takes files of any size on
// any computer, because nothing is mapped.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "image/header.h"
#include "kesto/piece_reader.h"
#include "util/unique_fd.h"

struct image_part {
  unsigned number = 0;  // from 0
  uint64_t offset = 0;  // of the header in the file
  uint8_t header[image_header_size] = {};

  uint32_t get(image_header_fields field) const { return image_header_get(header, field); }
  uint32_t length() const { return get(image_field_contents_length); }
  uint64_t contents_offset() const { return offset + image_header_size; }
  uint64_t end() const { return contents_offset() + length(); }
};

/// Why an image is none that a device takes.
struct image_fault {
  unsigned part = 0;
  uint64_t offset = 0;  // of the part in the file
  std::string text;
  std::string device_text;  // what the device says of it, empty when it has no words of its own
};

class image_file {
 public:
  using visitor = std::function<bool(const image_file& image, image_part& part)>;

  /// Result: false after an error.
  bool open(const char* path);
  uint64_t size() const { return size_; }

  /// Calls `visit` for each part in turn, with its number and offset set; it must take the header. Result:
  /// how many parts there are, or 0 when a visit answered false.
  unsigned visit_parts(const visitor& visit) const;
  /// From now on faults are kept in `fault`, and not printed.
  void keep_faults(image_fault* fault) { kept_fault_ = fault; }
  const char* path() const { return path_.c_str(); }

  /// Reads the header of the part at `part.offset`. Result: true when it is there and valid, else false after
  /// the fault, which for a header is told in the device's words.
  bool take_header(image_part& part) const;
  /// Result: true when the file holds all contents of the part, else false after the fault.
  bool holds_contents(const image_part& part) const;
  /// Hands the contents of a part that the file holds to `take`, piece by piece, until that answers false.
  /// Result: true with the checksum of all contents, or false, after an error if it was not `take` that
  /// failed.
  bool read_contents(const image_part& part, const std::function<bool(const file_piece& piece)>& take,
                     uint32_t* checksum) const;
  /// Adds up the contents of a part that the file holds. Result: false after an error.
  bool sum_contents(const image_part& part, uint32_t* checksum) const;

  /// Result: true when the contents have the checksum of the header, else false after the fault.
  bool check_sum(const image_part& part, uint32_t checksum) const;
  /// Result: true when the flag for another part agrees with the end of the file, else false after the fault.
  /// A device that receives the image as a stream knows its end by the flag only.
  bool check_flag(const image_part& part) const;

  /// Prints one line about a part to standard output, as all that was found out about an image goes there.
  /// Result: false.
  bool fault(const image_part& part, const char* format, ...) const __attribute__((format(printf, 3, 4)));

 private:
  bool read_failed(int error) const;

  std::string path_;
  image_fault* kept_fault_ = nullptr;
  unique_fd file_;
  uint64_t size_ = 0;
};
