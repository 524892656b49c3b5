// Paths are built in the caller's buffer: whole, or not at all.
#include "util/file_path.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "util/log.h"

bool filename_copy_and_maybe_add_path(char* out, size_t size, const char* directory, const char* name) {
  if (name == nullptr) {
    return false;
  }
  if (name[0] == '/') {
    if (strlen(name) >= size) {
      return false;
    }
    snprintf(out, size, "%s", name);
    return true;
  }
  if (directory == nullptr || strlen(directory) + strlen(name) + 1 >= size) {
    return false;
  }
  snprintf(out, size, "%s/%s", directory, name);
  return true;
}

bool file_wait_until_present(const char* path, int seconds) {
  log_printf(level_trace, "%s: file=%s seconds=%d\n", __func__, path, seconds);
  for (int left = seconds; left >= 0; --left) {
    struct stat status;
    if (stat(path, &status) == 0) {
      return true;
    }
    sleep(1);
  }
  return false;
}
