// Images in a stream: checking one, and installing one while it arrives, header by header, until one says
// that none follows. `bank` is 1, 2 or single. The first byte of each header may take 30 seconds, all further
// pieces 3.
#pragma once

#include <cstdint>

#include "mtd/partition_table.h"

/// Installs the parts of the stream `fd`. Raw destinations must be erased already. With `header_path` each
/// header must equal the next one saved there. `format_allowed` makes it a whole installation: a clean UBI
/// partition is formatted, and the bank schema and the Python packages are seen to; without it
/// image_prepare_system() has done that. A part that `mask` leaves out is skipped without its contents being
/// taken from the stream, so masks must select all that can occur. Result: true, or false after an error.
/// Parts already written stay then; the boot bank is set last, so only a failure to set it leaves it in
/// doubt.
bool image_write_fd(const char* header_path, int fd, mtd_banks bank, uint32_t mask, bool format_allowed);

/// Reads a whole image from `fd`, checks every part, and leaves their headers in the file `header_path`,
/// which is emptied first. Writes nothing to flash. Result: true, or false after an error.
bool image_get_headers_fd(int fd, mtd_banks bank, uint32_t mask, const char* header_path);
