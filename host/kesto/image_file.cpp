// Walking an image file part by part with pread() and lseek(); nothing of it is kept but the header at hand.
#include "kesto/image_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "kesto/piece_reader.h"
#include "kesto/report.h"

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

unsigned image_file::visit_parts(bool (*visit)(const image_file& image, image_part& part)) const {
  image_part part;
  do {
    if (!visit(*this, part)) {
      return 0;
    }
    part.offset = part.end();
    ++part.number;
  } while (part.offset < size_);
  return part.number;
}

bool image_file::take_header(image_part& part) const {
  const uint64_t left = size_ - part.offset;
  if (left < image_header_size) {
    return fault(part, "header ends after %" PRIu64 " of %" PRIu32 " bytes", left, image_header_size);
  }
  const ssize_t count = pread(file_.get(), part.header, sizeof part.header, static_cast<off_t>(part.offset));
  if (count != static_cast<ssize_t>(sizeof part.header)) {
    return read_failed(count < 0 ? errno : ENODATA);
  }
  return image_header_verify(part.header, sizeof part.header, false) || fault(part, "bad header");
}

bool image_file::holds_contents(const image_part& part) const {
  return part.end() <= size_ || fault(part, "contents end after %" PRIu64 " of %" PRIu32 " bytes",
                                      size_ - part.contents_offset(), part.length());
}

bool image_file::sum_contents(const image_part& part, uint32_t* checksum) const {
  if (lseek(file_.get(), static_cast<off_t>(part.contents_offset()), SEEK_SET) < 0) {
    return read_failed(errno);
  }
  piece_reader contents(file_.get());
  file_piece piece;
  for (uint64_t left = part.length(); left != 0; left -= piece.size) {
    const int result = contents.next(left, piece);
    if (result <= 0) {
      return read_failed(result < 0 ? errno : ENODATA);
    }
  }
  *checksum = contents.checksum();
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

bool image_file::read_failed(int error) const {
  report_error("%s: read error (%s)", path_, strerror(error));
  return false;
}
