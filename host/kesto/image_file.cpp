// See image_file.h.
#include "kesto/image_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>

#include "kesto/report.h"
#include "util/checksum.h"

bool image_file::open(const char* path) {
  path_ = path;
  file_.reset(::open(path, O_RDONLY | O_CLOEXEC));
  struct stat status;
  if (!file_ || fstat(file_.get(), &status) != 0) {
    report_error("%s: open error (%s)", path, strerror(errno));
    return false;
  }
  if (!S_ISREG(status.st_mode)) {
    report_error("%s: not a regular file", path);
    return false;
  }
  size_ = static_cast<uint64_t>(status.st_size);
  return true;
}

bool image_file::take_header(image_part& part) const {
  const uint64_t left = size_ - part.offset;
  if (left < image_header_size) {
    return fault(part, "header ends after %" PRIu64 " of %" PRIu32 " bytes", left, image_header_size);
  }
  if (!read(part.offset, part.header, sizeof part.header)) {
    return false;
  }
  return image_header_verify(part.header, sizeof part.header, 0) != 0 || fault(part, "bad header");
}

bool image_file::holds_contents(const image_part& part) const {
  return part.end() <= size_ || fault(part, "contents end after %" PRIu64 " of %" PRIu32 " bytes",
                                      size_ - part.contents_offset(), part.length());
}

bool image_file::sum_contents(const image_part& part, uint32_t* checksum) const {
  constexpr size_t piece_size = size_t{256} * 1024;
  const auto piece = std::make_unique<uint8_t[]>(piece_size);
  checksum_sum sum;
  for (uint64_t offset = part.contents_offset(); offset < part.end();) {
    const auto size = static_cast<size_t>(std::min<uint64_t>(piece_size, part.end() - offset));
    if (!read(offset, piece.get(), size)) {
      return false;
    }
    sum.add(piece.get(), size);
    offset += size;
  }
  *checksum = static_cast<uint32_t>(sum.finish());
  return true;
}

bool image_file::fault(const image_part& part, const char* format, ...) const {
  printf("%s: part %u at offset %" PRIu64 ": ", path_, part.number, part.offset);
  va_list args;
  va_start(args, format);
  vprintf(format, args);
  va_end(args);
  printf("\n");
  return false;
}

bool image_file::read(uint64_t offset, void* buffer, size_t size) const {
  auto* bytes = static_cast<uint8_t*>(buffer);
  while (size != 0) {
    const ssize_t count = pread(file_.get(), bytes, size, static_cast<off_t>(offset));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) {
      report_error("%s: read error (%s)", path_, count == 0 ? "the file became shorter" : strerror(errno));
      return false;
    }
    bytes += count;
    offset += static_cast<uint64_t>(count);
    size -= static_cast<size_t>(count);
  }
  return true;
}
