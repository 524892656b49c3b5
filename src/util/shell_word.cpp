// The rules are those of the shell command language (POSIX, section "Quoting").
#include "util/shell_word.h"

#include <cstring>

#include "util/log.h"

namespace {

bool is_special_in_quotes(char character) {
  return strchr("\\\"$`", character) != nullptr;
}

// Whatever is not known to be ordinary. Bytes above 127 are parts of characters that no shell knows.
bool is_special_bare(char character) {
  constexpr const char* ordinary =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-./+,:@%=^";
  return static_cast<unsigned char>(character) < 0x80 && strchr(ordinary, character) == nullptr;
}

}  // namespace

bool shell_word::set_quoted(const char* name) {
  return escape(name, is_special_in_quotes);
}

bool shell_word::set_bare(const char* name) {
  return escape(name, is_special_bare);
}

bool shell_word::escape(const char* name, bool (*is_special)(char character)) {
  char* out = text_;
  *out = '\0';
  if (strlen(name) > shell_name_max) {
    log_printf(level_error, "File name too long, limit is %i characters\n", static_cast<int>(shell_name_max));
    return false;
  }
  for (; *name != '\0'; ++name) {
    if (is_special(*name)) {
      *out++ = '\\';
    }
    *out++ = *name;
  }
  *out = '\0';
  return true;
}
