// An image chain that is written, as a file, as a stream from a serial line, and as a stream that comes twice
// over the network: what reaches the writers of flash are the parts, byte by byte, in their order. Byte 0:
// the way, the bank and whether flash is clean. Everything below the choice of the writer is replaced.
#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "commands/download.h"
#include "flash/clean_check.h"
#include "flash/write.h"
#include "fuzz_image_input.h"
#include "image/destination.h"
#include "image/file_installation.h"
#include "image/stream_installation.h"
#include "image/ubi_part.h"
#include "util/stream.h"

namespace {

void expect(bool holds) {
  if (!holds) {
    abort();
  }
}

// What one writer was given, with the header where it is to keep one.
std::vector<std::string> written;
std::vector<std::string> variables;
bool flash_is_empty;

std::string text_of(const uint8_t* bytes, size_t size) {
  return {reinterpret_cast<const char*>(bytes), size};
}

bool write_stream(const uint8_t* header, int fd, uint32_t length, uint64_t* checksum) {
  std::string bytes = header == nullptr ? "" : text_of(header, image_header_size);
  const auto take = [&bytes](const uint8_t* piece, size_t size) {
    bytes += text_of(piece, size);
    return true;
  };
  if (stream_receive({.fd = fd, .total = length}, checksum, take) != stream_status::complete) {
    return false;
  }
  written.push_back(bytes);
  return true;
}

// The parts of a good chain, as they are to be written: to the end of a file, or to the part with no next
// one.
std::vector<std::string> parts_of(const image_input& image, bool is_file) {
  std::vector<std::string> parts;
  for (size_t at = 0; at < image.size();) {
    const uint8_t* header = image.data() + at;
    expect(image.size() - at >= image_header_size);
    const size_t length = image_header_get(header, image_field_contents_length);
    const uint32_t type = image_header_get(header, image_field_contents_type);
    expect(image.size() - at - image_header_size >= length);
    if (type != image_contents_boot_env || flash_is_empty) {
      const size_t kept = image_contents_keep_header(type) ? image_header_size : 0;
      parts.push_back(text_of(header + image_header_size - kept, kept + length));
    }
    at += image_header_size + length;
    if (!is_file && image_header_get(header, image_field_next_header_flag) == 0) {
      break;
    }
  }
  return parts;
}

void judge(bool succeeded, const image_input& image, bool is_file, const char* bank) {
  if (!succeeded) {
    expect(variables.empty());
    return;
  }
  expect(written == parts_of(image, is_file));
  // The bank is the last thing to change.
  expect(variables.empty() || (variables.size() == 2 && variables[0].starts_with("kernel_size_") &&
                               variables[1] == std::string("bootbank=") + bank));
}

}  // namespace

// CMakeLists.txt puts these in the places of flash_write_buffer(), flash_write_buffer_fd(), ubi_part_write(),
// ubi_part_write_fd(), ubi_is_clean(), uboot_env_set_val() and mtd_name_to_erasesize().
extern "C" {

bool __wrap__Z18flash_write_bufferRK13mtd_partitionPKhm(const mtd_partition&, const uint8_t* bytes,
                                                        size_t size) {
  written.push_back(text_of(bytes, size));
  return true;
}
bool __wrap__Z21flash_write_buffer_fdRK13mtd_partitioniPKhjbPm(const mtd_partition&, int fd,
                                                               const uint8_t* header, uint32_t length,
                                                               bool erase_first, uint64_t* checksum) {
  expect(!erase_first);
  return write_stream(header, fd, length, checksum);
}
bool __wrap__Z14ubi_part_writeRK13mtd_partitionPKhS3_(const mtd_partition&, const uint8_t* header,
                                                      const uint8_t* contents) {
  written.push_back(text_of(contents, image_header_get(header, image_field_contents_length)));
  return true;
}
bool __wrap__Z17ubi_part_write_fdRK13mtd_partitionPKhibPm(const mtd_partition&, const uint8_t* header, int fd,
                                                          bool, uint64_t* checksum) {
  return write_stream(nullptr, fd, image_header_get(header, image_field_contents_length), checksum);
}
bool __wrap__Z12ubi_is_cleanPKc(const char*) {
  return flash_is_empty;
}
bool __wrap__Z17uboot_env_set_valPKcS0_(const char* name, const char* value) {
  variables.push_back(std::string(name) + "=" + value);
  return true;
}
uint32_t __wrap__Z21mtd_name_to_erasesizePKc(const char*) {
  return 0x20000;
}

}  // extern "C"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  run_all_messages_silently();
  if (size == 0) {
    return 0;
  }
  const image_input image(data + 1, size - 1);
  const input_file file(image.data(), image.size());
  const auto bank = (data[0] & 4) != 0 ? mtd_bank_2 : mtd_bank_1;
  flash_is_empty = (data[0] & 8) != 0;
  written.clear();
  variables.clear();
  bool succeeded = false;
  const bool is_file = data[0] % 4 == 0;
  if (is_file) {
    if (image_validate(file.path())) {
      succeeded = image_write(file.path(), bank, image_download_mask);
      // Only a part that this device has no place for is left to be found.
      expect(succeeded || written.size() < parts_of(image, true).size());
    }
  } else if (data[0] % 4 == 1) {
    const input_file headers(nullptr, 0);
    if (image_get_headers_fd(file.fd(), bank, image_download_mask, headers.path())) {
      lseek(file.fd(), 0, SEEK_SET);
      succeeded = image_write_fd(headers.path(), file.fd(), bank, image_download_mask, false);
      expect(succeeded);  // what was checked is written
    }
  } else {
    succeeded = image_write_fd(nullptr, file.fd(), bank, image_download_mask, true);
  }
  judge(succeeded, image, is_file, mtd_bank_string[bank]);
  return 0;
}
