// Walking the parts of a file.
#include "image/file_installation.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "flash/write.h"
#include "image/destination.h"
#include "image/header.h"
#include "image/installation.h"
#include "image/ubi_part.h"
#include "mtd/partition_table.h"
#include "util/checksum.h"
#include "util/log.h"
#include "util/mapped_file.h"
#include "util/unique_fd.h"

namespace {

// One part inside the mapping.
struct image_part {
  uint8_t header[image_header_size];  // a copy that may be written to
  const uint8_t* start;               // of the header in the mapping; the contents follow it
  uint64_t offset;                    // of the header in the file
  uint32_t type;
  uint32_t length;  // of the contents
  const uint8_t* contents() const { return start + image_header_size; }
};

bool contents_fit(const image_part& part, uint64_t image_size) {
  const uint64_t left = image_size - part.offset - image_header_size;
  if (left >= part.length) {
    return true;
  }
  log_printf(level_error, "Short contents: size=%i expected=%i\n", static_cast<int>(left),
             static_cast<int>(part.length));
  return false;
}

// Takes the part at `offset` of the image, whose contents are not looked for yet.
bool take_header(const mapped_file& image, uint64_t offset, image_part& part) {
  const uint64_t left = image.size() - offset;
  if (left < image_header_size) {
    log_printf(level_error, "Short image header: size=%i expected=%i\n", static_cast<int>(left),
               static_cast<int>(image_header_size));
    return false;
  }
  part.start = image.data() + offset;
  part.offset = offset;
  memcpy(part.header, part.start, image_header_size);
  part.type = image_header_get(part.header, image_field_contents_type);
  part.length = image_header_get(part.header, image_field_contents_length);
  return true;
}

bool validate_part(const mapped_file& image, image_part& part) {
  const auto offset = static_cast<int>(part.offset);
  if (!image_header_verify(part.header, image_header_size, false)) {
    log_printf(level_error, "Bad image header: offset=%i\n", offset);
    return false;
  }
  log_printf(level_verbose, "Found good image header: offset=%i type=%i\n", offset,
             static_cast<int>(part.type));
  if (!image_validate_destination(part.type) || !contents_fit(part, image.size())) {
    return false;
  }
  if (image_checksum(part.contents(), part.length) !=
      image_header_get(part.header, image_field_contents_checksum)) {
    log_printf(level_error, "Bad contents checksum: offset=%i size=%u\n", offset, part.length);
    return false;
  }
  log_printf(level_verbose, "Found good image contents: offset=%i size=%u\n", offset, part.length);
  return true;
}

bool write_raw(const mtd_partition& row, const image_part& part) {
  if (image_contents_keep_header(part.type)) {
    return flash_write_buffer(row, part.start, size_t{image_header_size} + part.length);
  }
  return flash_write_buffer(row, part.contents(), part.length);
}

bool write_part(const image_part& part, installation& state) {
  if (image_mask_skips(state.mask, part.type)) {
    log_printf(level_progress, "Skipping image part: offset=%i type=%u\n",
               static_cast<int>(part.offset + image_header_size), part.type);
    ++state.skipped;
    return true;
  }
  if (image_skips_boot_env(part.type)) {
    ++state.skipped;
    return true;
  }
  const mtd_partition* row = image_find_destination("image_write", part.type, state.bank);
  if (row == nullptr) {
    return false;
  }
  const bool written = image_destination_is_ubi(*row) ? ubi_part_write(*row, part.header, part.contents())
                                                      : write_raw(*row, part);
  if (written) {
    installation_count_part(state, part.type, part.length);
  }
  return written;
}

// Maps the file and hands each part to `act` until one fails. `smallest` is the least size it may have.
template <typename Act>
bool for_each_part(const char* path, uint64_t smallest, Act act) {
  const unique_fd file(open(path, O_RDONLY | O_CLOEXEC));
  if (!file) {
    log_printf(level_error, "open(%s) error(%s)\n", path, strerror(errno));
    return false;
  }
  struct stat status;
  if (fstat(file.get(), &status) != 0) {
    log_printf(level_error, "stat(%s) error(%s)\n", path, strerror(errno));
    return false;
  }
  const auto size = static_cast<uint64_t>(status.st_size);
  if (size < smallest) {
    log_printf(level_error, "image size too small file=%s size=%i\n", path, static_cast<int>(size));
    return false;
  }
  if (size > SIZE_MAX) {
    log_printf(level_error, "mmap(len=%i) error(%s)\n", static_cast<int>(size), strerror(EFBIG));
    return false;
  }
  const mapped_file image(file.get(), static_cast<size_t>(size));
  if (!image) {
    log_printf(level_error, "mmap(len=%i) error(%s)\n", static_cast<int>(size), strerror(errno));
    return false;
  }
  image_part part;
  for (uint64_t offset = 0; offset < size; offset += uint64_t{image_header_size} + part.length) {
    if (!take_header(image, offset, part) || !act(image, part)) {
      return false;
    }
  }
  return true;
}

}  // namespace

bool image_validate(const char* path) {
  log_printf(level_info, "%s: file=%s\n", __func__, path);
  return for_each_part(path, image_header_size, validate_part);
}

bool image_write(const char* path, mtd_banks bank, uint32_t mask) {
  log_printf(level_info, "%s: file=%s bank=%s\n", __func__, path, mtd_bank_string[bank]);
  installation state = {.bank = bank, .mask = mask};
  const bool written = for_each_part(path, 1, [&state](const mapped_file& image, image_part& part) {
    image_print_info(part.header);
    return contents_fit(part, image.size()) && write_part(part, state);
  });
  if (!written) {
    log_printf(level_info, "Wrote %i image parts, skipped %i\n", state.written, state.skipped);
    return false;
  }
  return installation_finish(state);
}
