// See report.h.
#include "kesto/report.h"

#include <getopt.h>

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

int report_bad_option(const char* command, int getopt_result, char** arguments) {
  const char* what = getopt_result == ':' ? "needs a value" : "is not known here";
  const char* word = arguments[optind - 1];
  if (word[0] == '-' && word[1] == '-') {
    return report_usage(command, "option '%s' %s", word, what);
  }
  return report_usage(command, "option '-%c' %s", optopt, what);
}
