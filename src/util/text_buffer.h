// A text of bounded length composed from a printf format, which is either whole or refused.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdio>

template <size_t Size>
class text_buffer {
 public:
  /// Replaces the text. Result: false, leaving it empty, when it would not fit with its terminator.
  bool vformat(const char* format, va_list args) __attribute__((format(printf, 2, 0))) {
    const int length = vsnprintf(text_, Size, format, args);
    if (length >= 0 && static_cast<size_t>(length) < Size) {
      return true;
    }
    text_[0] = '\0';
    return false;
  }

  bool format(const char* format, ...) __attribute__((format(printf, 2, 3))) {
    va_list args;
    va_start(args, format);
    const bool whole = vformat(format, args);
    va_end(args);
    return whole;
  }

  const char* text() const { return text_; }
  static constexpr size_t size() { return Size; }

 private:
  char text_[Size] = {};
};
