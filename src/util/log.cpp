// Writes to standard output, or to /tmp/recovery.log while the console port carries a transfer.
#include "util/log.h"

#include <unistd.h>

#include <cstdio>

#include "util/unique_file.h"

uint32_t log_level = level_error;
int32_t log_state = 1;

namespace {

constexpr const char* level_strings[] = {
    "", "", "NOTE: ", "ERROR: ", "INFO: ", "PROGRESS: ", "VERBOSE: ", "TRACE: ",
};
constexpr unsigned level_count = sizeof level_strings / sizeof level_strings[0];

constexpr const char* suspended_log_path = "/tmp/recovery.log";

__attribute__((format(printf, 3, 0))) void write_message(FILE* out, unsigned level, const char* format,
                                                         va_list args) {
  if (level < level_count) {
    fputs(level_strings[level], out);
  }
  vfprintf(out, format, args);
  fflush(out);
}

}  // namespace

void log_printf(unsigned level, const char* format, ...) {
  va_list args;
  va_start(args, format);
  log_vprintf(level, format, args);
  va_end(args);
}

void log_vprintf(unsigned level, const char* format, va_list args) {
  if (log_level < level) {
    return;
  }
  if (log_state == 1) {
    write_message(stdout, level, format, args);
    return;
  }
  // Opened and closed for every message, so that what was logged is there even if the shell dies.
  const unique_file file(suspended_log_path, "ae");
  if (file) {
    write_message(file.stream(), level, format, args);
  }
}

void log_suspend() {
  log_state = 0;
  unlink(suspended_log_path);
}

void log_resume() {
  log_state = 1;
  if (const unique_file file(suspended_log_path, "re"); file) {
    char piece[256];
    while (fgets(piece, sizeof piece, file.stream()) != nullptr) {
      printf("%s", piece);
    }
    fflush(stdout);
  }
  unlink(suspended_log_path);
}
