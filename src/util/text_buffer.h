// A text of bounded length composed from a printf format: either whole or refused, for what is acted on, or
// cut, for what is only read.
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

  /// Replaces the text by as much as fits of the new one.
  void format_cut(const char* format, ...) __attribute__((format(printf, 2, 3))) {
    va_list args;
    va_start(args, format);
    vsnprintf(text_, Size, format, args);
    va_end(args);
  }

  const char* text() const { return text_; }
  static constexpr size_t size() { return Size; }

 private:
  char text_[Size] = {};
};
