// Making an image from files: everything that can be refused is refused before the first byte is written.
#include "kesto/image_builder.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "image/header.h"
#include "kesto/image_output.h"
#include "kesto/piece_reader.h"
#include "kesto/report.h"
#include "util/unique_fd.h"

namespace {

bool refuse_size(const char* path) {
  report_error("%s: too large, a part holds at most %" PRIu32 " bytes", path, UINT32_MAX);
  return false;
}

// Opens a file for reading. The output and what cannot fit a part are refused before anything is written.
bool open_input(const char* path, const image_output& output, unique_fd& file) {
  file.reset(open(path, O_RDONLY | O_CLOEXEC));
  struct stat status;
  if (!file || fstat(file.get(), &status) != 0) {
    report_error("%s: open error (%s)", path, strerror(errno));
    return false;
  }
  if (output.replaces(status)) {
    report_error("%s: is input and output", path);
    return false;
  }
  if (S_ISREG(status.st_mode) && status.st_size > int64_t{UINT32_MAX}) {
    return refuse_size(path);
  }
  return true;
}

// Copies a file into the image as it is. Result: false after an error.
bool copy_contents(const char* path, piece_reader& contents, image_output& output, uint32_t* length) {
  uint64_t total = 0;
  file_piece piece;
  int result;
  while ((result = contents.next(UINT32_MAX, piece)) > 0) {
    total += piece.size;
    if (total > UINT32_MAX) {
      return refuse_size(path);
    }
    if (!output.append(piece.data, piece.size)) {
      return false;
    }
  }
  if (result < 0) {
    report_error("%s: read error (%s)", path, strerror(errno));
    return false;
  }
  if (total == 0) {
    report_error("%s: is empty", path);
    return false;
  }
  *length = static_cast<uint32_t>(total);
  return true;
}

bool write_part(const part_order& part, int file, bool more, image_output& output) {
  const uint64_t header_offset = output.reserve(image_header_size);
  piece_reader contents(file);
  uint32_t length = 0;
  if (!part.is_empty && !copy_contents(part.path.c_str(), contents, output, &length)) {
    return false;
  }
  uint8_t header[image_header_size];
  part_compose_header(header, part, length, contents.checksum(), more);
  return output.write_at(header_offset, header, sizeof header);
}

void warn_of_parts_without_destination(const build_order& order) {
  for (size_t i = 0; i < order.parts.size(); ++i) {
    if (const uint32_t type = order.parts[i].type; !part_has_destination(type)) {
      report_warning("part %zu: the device has no place for contents of type %s and will refuse this image",
                     i, part_type_name(type));
    }
  }
}

}  // namespace

bool image_builder_build(const build_order& order) {
  warn_of_parts_without_destination(order);
  image_output output;
  if (!output.choose(order.output.c_str())) {
    return false;
  }
  std::vector<unique_fd> files(order.parts.size());
  for (size_t i = 0; i < files.size(); ++i) {
    if (!order.parts[i].is_empty && !open_input(order.parts[i].path.c_str(), output, files[i])) {
      return false;
    }
  }
  if (!output.create()) {
    return false;
  }
  for (size_t i = 0; i < files.size(); ++i) {
    if (!write_part(order.parts[i], files[i].get(), i + 1 < files.size(), output)) {
      return false;
    }
  }
  if (!output.finish()) {
    return false;
  }
  printf("%s: %zu %s, %" PRIu64 " bytes\n", order.output.c_str(), files.size(),
         files.size() == 1 ? "part" : "parts", output.size());
  return true;
}
