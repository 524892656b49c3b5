// A file on its way is "OUT.kesto-PID" beside its place, and renamed when it is complete.
#include "kesto/image_output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kesto/report.h"

namespace {

bool is_zero(const uint8_t* data, size_t size) {
  return data[0] == 0 && memcmp(data, data + 1, size - 1) == 0;
}

}  // namespace

bool image_output::failed(const char* what) const {
  report_error("%s: %s error (%s)", name_.c_str(), what, strerror(errno));
  return false;
}

bool image_output::choose(const char* path) {
  name_ = path;
  path_ = path;
  if (stat(path, &replaced_) != 0) {
    replaced_ = {};
    return true;
  }
  if (!S_ISREG(replaced_.st_mode)) {
    report_error("%s: not a regular file", path);
    return false;
  }
  if (char* resolved = realpath(path, nullptr)) {
    path_ = resolved;
    free(resolved);
  }
  return true;
}

bool image_output::replaces(const struct stat& file) const {
  return replaced_.st_nlink != 0 && file.st_dev == replaced_.st_dev && file.st_ino == replaced_.st_ino;
}

bool image_output::create() {
  signal(SIGXFSZ, SIG_IGN);  // beyond the limit of file sizes, write() is to fail
  const std::string path = path_ + ".kesto-" + std::to_string(getpid());
  const signals_held_back hold;
  file_.reset(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
  if (!file_) {
    return failed("create");
  }
  temporary_.emplace(path);
  return true;
}

uint64_t image_output::reserve(uint64_t size) {
  const uint64_t offset = size_;
  size_ += size;
  return offset;
}

bool image_output::append(const uint8_t* data, uint64_t size) {
  const uint64_t offset = reserve(size);
  const auto count = static_cast<size_t>(size);
  return data == nullptr || is_zero(data, count) || write_at(offset, data, count);
}

bool image_output::write_at(uint64_t offset, const uint8_t* data, size_t size) {
  while (size != 0) {
    const ssize_t written = pwrite(file_.get(), data, size, static_cast<off_t>(offset));
    if (written < 0) {
      if (errno == EINTR) continue;
      return failed("write");
    }
    const auto count = static_cast<size_t>(written);
    data += count;
    offset += count;
    size -= count;
  }
  return true;
}

bool image_output::finish() {
  // The last bytes may be a hole, which only this makes part of the file.
  if (ftruncate(file_.get(), static_cast<off_t>(size_)) != 0 || close(file_.release()) != 0) {
    return failed("write");
  }
  if (rename(temporary_->path().c_str(), path_.c_str()) != 0) {
    return failed("rename");
  }
  temporary_->finish();
  temporary_.reset();
  return true;
}
