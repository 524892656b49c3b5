// Plain open() and write(), so that a full file system is noticed at the piece that did not fit.
#include "util/file_create.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "util/log.h"
#include "util/stream.h"
#include "util/unique_fd.h"

namespace {

unique_fd create(const char* path) {
  unique_fd file(open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  if (!file) {
    log_printf(level_error, "open(%s) error(%s)\n", path, strerror(errno));
  }
  return file;
}

bool write_whole(const unique_fd& file, const void* data, size_t size) {
  errno = 0;
  const ssize_t written = write(file.get(), data, size);
  if (written >= 0 && static_cast<size_t>(written) < size && errno == 0) {
    errno = ENOSPC;  // what a short write to a file means
  }
  return written == static_cast<ssize_t>(size);
}

}  // namespace

bool file_create_from_buffer(const char* path, const void* buffer, size_t length) {
  log_printf(level_trace, "%s: filename=%s buf_len=%u\n", __func__, path, static_cast<unsigned>(length));
  const unique_fd file = create(path);
  if (!file) {
    return false;
  }
  if (!write_whole(file, buffer, length)) {
    log_printf(level_error, "write(%s) error(%s)\n", path, strerror(errno));
    return false;
  }
  return true;
}

bool file_create_from_fd(const char* path, int fd, const uint8_t* header, uint32_t total,
                         uint64_t* checksum) {
  log_printf(level_trace, "%s: filename=%s buf_len=%u\n", __func__, path, total);
  const unique_fd file = create(path);
  if (!file) {
    return false;
  }
  if (header != nullptr && !write_whole(file, header, image_header_size)) {
    log_printf(level_error, "write(%s) error(%s)\n", path, strerror(errno));
    return false;
  }
  const auto store = [&file](const uint8_t* piece, size_t size) { return write_whole(file, piece, size); };
  switch (stream_receive({.fd = fd, .total = total}, checksum, store)) {
    case stream_status::complete:
      break;
    case stream_status::sink_failed:
      log_printf(level_error, "Failed to write firmware image\n");
      return false;
    default:
      log_printf(level_error, "Failed to read firmware image [%s]\n", strerror(errno));
      return false;
  }
  log_printf(level_verbose, "file_create_from_fd received %d bytes\n", static_cast<int>(total));
  return true;
}
