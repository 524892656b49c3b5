// Text from outside on its way to the console: a byte that is no printable ASCII character would move the
// cursor, change the terminal's settings or ring its bell.
#pragma once

#include <cstddef>

/// A copy of the first `Max` characters of a text, with "?" in place of every byte that cannot be printed.
template <size_t Max>
class printable {
 public:
  /// `text` ends at a zero byte or after `Max` characters.
  explicit printable(const char* text) {
    for (size_t i = 0; i < Max && text[i] != '\0'; ++i) {
      text_[i] = text[i] >= ' ' && text[i] <= '~' ? text[i] : '?';
    }
  }
  const char* text() const { return text_; }

 private:
  char text_[Max + 1] = {};
};
