// Lines are looked at in pieces of 255 characters.
#include "analysis/product_info.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstring>

#include "util/unique_file.h"

namespace {

// Takes the text between the first and the last double quote behind `key`; an empty one is passed over. The
// line is cut there. Result: true when it has the key.
template <size_t Size>
bool take_value(char* line, const char* key, char (&field)[Size]) {
  char* found = strstr(line, key);
  if (found == nullptr) {
    return false;
  }
  const char* first = strchr(found, '"');
  char* last = strrchr(found, '"');
  if (first != nullptr && last > first + 1) {
    *last = '\0';
    analysis_set_text(field, first + 1);
  }
  return true;
}

}  // namespace

void product_info_read(const char* path, flash_analysis* record) {
  // What is no file is not opened: a pipe would wait for its writer, a device might do anything.
  struct stat status;
  if (stat(path, &status) != 0 || !S_ISREG(status.st_mode)) {
    return;
  }
  const unique_file file(path, "re");
  if (!file) {
    return;
  }
  char line[256];
  while (fgets(line, sizeof line, file.stream()) != nullptr) {
    if (!take_value(line, "VEXO_PRODUCT_VERSION", record->version)) {
      take_value(line, "VEXO_PRODUCT_CODE", record->code);
    }
  }
}
