// Takes headers and contents off a stream. Reads the saved headers, writes flash through flash/write,
// image/ubi_part and bootenv.
#include "image/stream_installation.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "flash/write.h"
#include "image/destination.h"
#include "image/header.h"
#include "image/installation.h"
#include "image/ubi_part.h"
#include "mtd/partition_table.h"
#include "util/log.h"
#include "util/stream.h"
#include "util/unique_fd.h"

namespace {

// The time that a person has to start the sender.
constexpr unsigned start_seconds = 30;

struct header_reader {
  uint8_t bytes[image_header_size];
  uint32_t count = 0;

  stream_status receive(int fd) {
    count = 0;
    const stream_source source = {.fd = fd, .total = image_header_size, .first_seconds = start_seconds};
    return stream_receive(source, nullptr, [this](const uint8_t* piece, size_t size) {
      memcpy(bytes + count, piece, size);
      count += static_cast<uint32_t>(size);
      return true;
    });
  }
  uint32_t get(image_header_fields field) const { return image_header_get(bytes, field); }
};

constexpr auto discard = [](const uint8_t* /*piece*/, size_t /*size*/) { return true; };

// The checksum runs in 64 bits; a header holds the low 32. `line_end` is empty where the next message belongs
// on the same line: fixtures know the two as one.
bool checksum_matches(uint64_t calculated, uint32_t expected, const char* line_end) {
  if (static_cast<uint32_t>(calculated) == expected) {
    return true;
  }
  log_printf(level_error, "Failed checksum test: calculated 0x%x vs 0x%x%s",
             static_cast<uint32_t>(calculated), expected, line_end);
  return false;
}

// Receives and checks the header of part `number` against the saved ones, if any.
bool accept_header(int fd, const unique_fd& saved_headers, int number, header_reader& header) {
  if (header.receive(fd) != stream_status::complete) {
    log_printf(level_error, "Failed to write firmware image [%s]\n", strerror(errno));
    return false;
  }
  if (!image_header_verify(header.bytes, image_header_size, true)) {
    image_print_info(header.bytes);
    log_printf(level_error, "Bad image header %d\n", number);
    return false;
  }
  const uint32_t type = header.get(image_field_contents_type);
  log_printf(level_verbose, "Found good image header: type=%i\n", static_cast<int>(type));
  if (!image_validate_destination(type)) {
    log_printf(level_error, "Bad image destination\n");
    return false;
  }
  image_print_info(header.bytes);
  if (!saved_headers) {
    return true;
  }
  uint8_t saved[image_header_size];
  if (read(saved_headers.get(), saved, sizeof saved) != static_cast<ssize_t>(sizeof saved)) {
    log_printf(level_error, "Failed to read image header %d\n", number);
    return false;
  }
  if (memcmp(saved, header.bytes, sizeof saved) != 0) {
    log_printf(level_error, "Header %d mismatch\n", number);
    log_printf(level_error, "Expected header:\n");
    image_print_info(saved);
    return false;
  }
  return true;
}

// Takes the contents of a boot environment off the stream: an environment in use is not overwritten.
bool skip_boot_env(int fd, uint32_t length) {
  const stream_source source = {.fd = fd, .total = length, .byte_by_byte = true};
  if (stream_receive(source, nullptr, discard) != stream_status::complete) {
    log_printf(level_error, "Failed to read firmware image [%s]\n", strerror(errno));
    return false;
  }
  return true;
}

bool write_contents(const mtd_partition& row, const header_reader& header, int fd, bool format_allowed,
                    uint64_t* checksum) {
  if (image_destination_is_ubi(row)) {
    return ubi_part_write_fd(row, header.bytes, fd, format_allowed, checksum);
  }
  const bool keep_header = image_contents_keep_header(header.get(image_field_contents_type));
  return flash_write_buffer_fd(row, fd, keep_header ? header.bytes : nullptr,
                               header.get(image_field_contents_length), false, checksum);
}

bool write_part(const header_reader& header, int fd, bool format_allowed, installation& state) {
  const uint32_t type = header.get(image_field_contents_type);
  const uint32_t length = header.get(image_field_contents_length);
  if (image_mask_skips(state.mask, type)) {
    // The contents stay in the stream; no caller leaves out a type that can occur.
    log_printf(level_progress, "Skipping image part: type=%u\n", type);
    ++state.skipped;
    return true;
  }
  if (image_skips_boot_env(type)) {
    ++state.skipped;
    return skip_boot_env(fd, length);
  }
  const mtd_partition* row = image_find_destination("image_write_fd", type, state.bank);
  if (row == nullptr) {
    return false;
  }
  uint64_t checksum = 0;
  if (!write_contents(*row, header, fd, format_allowed, &checksum)) {
    log_printf(level_error, "Failed to write firmware image\n");
    return false;
  }
  installation_count_part(state, type, length);
  return checksum_matches(checksum, header.get(image_field_contents_checksum), "");
}

// Receives one part completely and checks it.
bool check_part(int fd, mtd_banks bank, header_reader& header) {
  switch (header.receive(fd)) {
    case stream_status::complete:
      break;
    case stream_status::ended:
      log_printf(level_error, "Failed to read firmware header %d / %d bytes [%s]\n",
                 static_cast<int>(header.count), static_cast<int>(image_header_size), strerror(errno));
      return false;
    default:
      log_printf(level_error, "Failed to read image information\n");
      return false;
  }
  log_printf(level_verbose, "image_get_headers_fd read %d header bytes\n", static_cast<int>(header.count));
  image_print_info(header.bytes);
  uint64_t checksum = 0;
  const stream_source contents = {.fd = fd, .total = header.get(image_field_contents_length)};
  if (stream_receive(contents, &checksum, discard) != stream_status::complete) {
    log_printf(level_error, "Failed to read firmware data [%s]\n", strerror(errno));
    return false;
  }
  if (!image_header_verify(header.bytes, image_header_size, true)) {
    log_printf(level_error, "Bad image header\n");
    return false;
  }
  // After this check flash is erased, so a part that this device has no partition for is refused here.
  const uint32_t type = header.get(image_field_contents_type);
  if (!image_validate_destination(type) ||
      image_find_destination("image_get_headers_fd", type, bank) == nullptr) {
    log_printf(level_error, "Bad image destination\n");
    return false;
  }
  return checksum_matches(checksum, header.get(image_field_contents_checksum), "\n");
}

}  // namespace

bool image_write_fd(const char* header_path, int fd, mtd_banks bank, uint32_t mask, bool format_allowed) {
  log_printf(level_trace, "%s:\n", __func__);
  unique_fd saved_headers;
  if (header_path != nullptr) {
    saved_headers.reset(open(header_path, O_RDONLY | O_CLOEXEC));
    if (!saved_headers) {
      log_printf(level_error, "open(%s) error(%s)\n", header_path, strerror(errno));
      return false;
    }
  }
  installation state = {.bank = bank, .mask = mask};
  header_reader header;
  int number = 0;
  do {
    if (!accept_header(fd, saved_headers, number, header) || !write_part(header, fd, format_allowed, state)) {
      return false;
    }
    ++number;
  } while (header.get(image_field_next_header_flag) != 0);
  return installation_finish(state);
}

bool image_get_headers_fd(int fd, mtd_banks bank, uint32_t /*mask*/, const char* header_path) {
  log_printf(level_trace, "%s:\n", __func__);
  const unique_fd headers(open(header_path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  if (!headers) {
    log_printf(level_error, "Failed to save image information\n");
    return false;
  }
  header_reader header;
  do {
    if (!check_part(fd, bank, header)) {
      return false;
    }
    if (write(headers.get(), header.bytes, image_header_size) != static_cast<ssize_t>(image_header_size)) {
      log_printf(level_error, "Failed to save image information\n");
      return false;
    }
  } while (header.get(image_field_next_header_flag) != 0);
  return true;
}
