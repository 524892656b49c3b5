// A name typed by the operator as a word of a command line: escaped, so that the tool receives the name as it
// was typed and the shell never runs a piece of it. A name of ordinary characters stays as it is.
#pragma once

#include <cstddef>

/// The longest name that is taken; the operator's line has no room for a longer one.
constexpr size_t shell_name_max = 256;

class shell_word {
 public:
  /// Takes a name that stands between double quotes. Result: false after an error when it is too long.
  bool set_quoted(const char* name);
  /// Takes a name that stands in a command line without quotes. Result: as above.
  bool set_bare(const char* name);

  const char* text() const { return text_; }

 private:
  bool escape(const char* name, bool (*is_special)(char character));

  char text_[2 * shell_name_max + 1] = {};
};
