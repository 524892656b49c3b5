// Pushes a file into a line as fast as the line takes it, while the console is watched.
#pragma once

#include <cstdint>
#include <functional>

#include "device/line.h"
#include "device/shell_session.h"

struct serial_sending {
  line* data = nullptr;            // the line that takes the file
  shell_session* shell = nullptr;  // the console; it may be on the same line
  bool same_line = true;
  int file = -1;  // read from its start
  uint64_t size = 0;
  uint64_t pace = 0;        // at most so many bytes a second, 0 = what the line takes
  milliseconds patience{};  // the line may take nothing for so long
  std::function<void(uint64_t sent)> progress;
};

/// Result: whether all of the file was handed on. False as soon as the shell says something: it has had
/// enough. Throws device_failure when the line is gone or takes nothing, on Ctrl-C, and when the file cannot
/// be read.
bool serial_send(const serial_sending& sending);
