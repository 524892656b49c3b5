// Images in a stream, written while they arrive: header by header, until one says that none follows.
#pragma once

#include <cstdint>

/// Installs the parts of the stream `fd` for `bank` (mtd_bank_1, _2, _single). The first byte of each header
/// may take 30 seconds, all further pieces 3. With `header_path` each header must equal the next one saved
/// there, and destinations are erased already; without, raw destinations must be erased by the caller too.
/// `format_allowed` lets a clean UBI partition be formatted. A part that `mask` leaves out is skipped without
/// its contents being taken from the stream, so masks must select all that can occur. Result: 1, or 0 after
/// an error; parts already written stay, the boot environment is then untouched.
int image_write_fd(const char* header_path, int fd, int bank, uint32_t mask, int format_allowed);

/// Reads a whole image from `fd`, checks every part and appends its header to the file `header_path`. Writes
/// nothing to flash. Result: 1, or 0 after an error.
int image_get_headers_fd(int fd, int bank, uint32_t mask, const char* header_path);
