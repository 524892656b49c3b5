// Parts of an image that go into the UBI device.
#pragma once

#include <cstdint>

#include "mtd/partition_table.h"

/// Makes the UBI partition ready for a part described by `header`: a clean one is formatted with the sizes in
/// the header if `format_allowed`, but takes no OEM defaults. Result: true, or false after an error.
bool ubi_part_make_ready(const mtd_partition& row, const uint8_t* header, bool format_allowed);

/// Writes contents held in memory, described by `header`, into volume `row`. Result: true, or false after an
/// error.
bool ubi_part_write(const mtd_partition& row, const uint8_t* header, const uint8_t* contents);

/// The same with the contents streamed from `fd`; their image checksum is left in `*checksum`. Only with
/// `format_allowed` is a clean UBI partition formatted first.
bool ubi_part_write_fd(const mtd_partition& row, const uint8_t* header, int fd, bool format_allowed,
                       uint64_t* checksum);
