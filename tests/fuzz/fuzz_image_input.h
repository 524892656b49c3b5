// Images that get past the header checks: random bytes hardly ever do.
#pragma once

#include <cstdlib>
#include <cstring>

#include "fuzz_input.h"
#include "image/header.h"
#include "util/checksum.h"

/// A copy of the input whose parts, as far as their lengths lead, have good headers, and good contents where
/// the first reserved byte says so.
class image_input {
 public:
  image_input(const uint8_t* data, size_t size)
      : bytes_(static_cast<uint8_t*>(malloc(size + 1))), size_(size) {
    memcpy(bytes_, data, size);
    for (size_t offset = 0; size - offset >= image_header_size;) {
      offset += image_header_size + mend_part(bytes_ + offset, size - offset - image_header_size);
    }
  }
  image_input(const image_input&) = delete;
  image_input& operator=(const image_input&) = delete;
  ~image_input() { free(bytes_); }
  const uint8_t* data() const { return bytes_; }
  size_t size() const { return size_; }

 private:
  // Result: how many bytes of contents to pass over.
  static size_t mend_part(uint8_t* header, size_t left) {
    memcpy(header, image_header_id, sizeof image_header_id);
    image_header_set(header, image_field_header_type, 0);
    image_header_set(header, image_field_header_length, image_header_size);
    image_header_set(header, image_field_contents_mangle_type, 0);
    image_header_set(header, image_field_contents_passcode_type, 0);
    const uint32_t length = image_header_get(header, image_field_contents_length);
    image_header_set(header, image_field_contents_final_length, length);
    const bool mend_contents = (header[20] & 1) != 0 && length <= left;
    if (mend_contents) {
      image_header_set(header, image_field_contents_checksum,
                       image_checksum(header + image_header_size, length));
    }
    image_header_set(header, image_field_contents_final_checksum,
                     image_header_get(header, image_field_contents_checksum));
    image_header_set(header, image_field_header_checksum, image_header_checksum(header));
    return length <= left ? length : left;
  }

  uint8_t* bytes_;
  size_t size_;
};
