// Paths of files: from a typed name, and waiting for one to appear.
#pragma once

#include <cstddef>

/// Builds the path of a file name: one that begins with '/' as it is, any other below `directory`. Result:
/// true when it fits `size` bytes with its terminator; false also for a null name, and for a null directory
/// that is needed. Nothing is logged.
bool filename_copy_and_maybe_add_path(char* out, size_t size, const char* directory, const char* name);

/// Looks for `path` every second, `seconds` + 1 times, and sleeps after each miss. Result: true once it
/// exists.
bool file_wait_until_present(const char* path, int seconds);
