// Images in a file: checking one, and installing from one. The file is mapped and walked by length; it ends
// where its last part ends.
#pragma once

#include <cstdint>

/// Result: 1 when every part of the file is well-formed, whole, and can be taken by this device; 0 after the
/// first fault's error. Writes nothing.
int image_validate(const char* path);

/// Installs the parts selected by `mask` (one bit per contents type) for `bank` (mtd_bank_1, _2, _single).
/// Result: 1, or 0 after an error; parts already written stay, the boot environment is then untouched.
int image_write(const char* path, int bank, uint32_t mask);
