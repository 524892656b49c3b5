// One line each on standard error: "kesto: TEXT".
#include "kesto/report.h"

#include <cstdarg>
#include <cstdio>

namespace {

__attribute__((format(printf, 2, 0))) void print(const char* kind, const char* format, va_list args) {
  fprintf(stderr, "kesto: %s", kind);
  vfprintf(stderr, format, args);
}

}  // namespace

int report_error(const char* format, ...) {
  va_list args;
  va_start(args, format);
  print("", format, args);
  va_end(args);
  fputc('\n', stderr);
  return exit_failed;
}

void report_warning(const char* format, ...) {
  va_list args;
  va_start(args, format);
  print("warning: ", format, args);
  va_end(args);
  fputc('\n', stderr);
}

int report_usage(const char* command, const char* format, ...) {
  va_list args;
  va_start(args, format);
  print("", format, args);
  va_end(args);
  fprintf(stderr, " (see 'kesto %s%s--help')\n", command, command[0] != '\0' ? " " : "");
  return exit_usage;
}
