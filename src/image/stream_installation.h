// Images in a stream: checking one, and installing one while it arrives, header by header, until one says
// that none follows. `bank` is 1, 2 or single. The first byte of each header may take 30 seconds, all further
// pieces 3.
#pragma once

#include <cstdint>

#include "mtd/partition_table.h"

/// Installs the parts of the stream `fd`. With `header_path` each header must equal the next one saved there,
/// and destinations are erased already; without it, raw destinations must have been erased before, too.
/// `format_allowed` lets a clean UBI partition be formatted. A part that `mask` leaves out is skipped without
/// its contents being taken from the stream, so masks must select all that can occur. Result: true, or false
/// after an error; parts already written stay, and the boot bank is not
/// switched, unless setting it is what failed.
bool image_write_fd(const char* header_path, int fd, mtd_banks bank, uint32_t mask, bool format_allowed);

/// Reads a whole image from `fd`, checks every part and appends its header to the file `header_path`. Writes
/// nothing to flash. Result: true, or false after an error.
bool image_get_headers_fd(int fd, mtd_banks bank, uint32_t mask, const char* header_path);
