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

unsigned image_file::visit_parts(const visitor& visit) const {
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
  char device_text[96];
  if (image_header_is_valid(part.header, sizeof part.header, device_text, sizeof device_text)) {
    return true;
  }
  if (kept_fault_ == nullptr) {
    printf("ERROR: %s\n", device_text);
  } else {
    kept_fault_->device_text = device_text;
  }
  return fault(part, "bad header");
}

bool image_file::holds_contents(const image_part& part) const {
  return part.end() <= size_ || fault(part, "contents end after %" PRIu64 " of %" PRIu32 " bytes",
                                      size_ - part.contents_offset(), part.length());
}

bool image_file::read_contents(const image_part& part,
                               const std::function<bool(const file_piece& piece)>& take,
                               uint32_t* checksum) const {
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
    if (!take(piece)) {
      return false;
    }
  }
  *checksum = contents.checksum();
  return true;
}

bool image_file::sum_contents(const image_part& part, uint32_t* checksum) const {
  return read_contents(
      part, [](const file_piece& /*piece*/) { return true; }, checksum);
}

bool image_file::check_sum(const image_part& part, uint32_t checksum) const {
  const uint32_t expected = part.get(image_field_contents_checksum);
  return checksum == expected ||
         fault(part, "contents checksum is 0x%08" PRIX32 ", the header says 0x%08" PRIX32, checksum,
               expected);
}

bool image_file::check_flag(const image_part& part) const {
  const bool more = part.get(image_field_next_header_flag) != 0;
  const uint64_t left = size_ - part.end();
  if (more && left == 0) {
    return fault(part, "promises another part, but the file ends");
  }
  if (!more && left != 0) {
    return fault(part, "says that it is the last one, but %" PRIu64 " bytes follow", left);
  }
  return true;
}

bool image_file::fault(const image_part& part, const char* format, ...) const {
  char text[256];
  va_list args;
  va_start(args, format);
  vsnprintf(text, sizeof text, format, args);
  va_end(args);
  if (kept_fault_ == nullptr) {
    printf("%s: part %u at offset %" PRIu64 ": %s\n", path(), part.number, part.offset, text);
  } else {
    kept_fault_->part = part.number;
    kept_fault_->offset = part.offset;
    kept_fault_->text = text;
  }
  return false;
}

bool image_file::read_failed(int error) const {
  report_error("%s: read error (%s)", path(), strerror(error));
  return false;
}
