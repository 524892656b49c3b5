// Parts of an image that go into the UBI device. `volume` is the row of the part's destination, `header` the
// 256 bytes in front of its contents. Results: true, or false after an error.
#pragma once

#include <cstdint>

#include "mtd/partition_table.h"

/// Makes the UBI partition ready for the part: a clean one is formatted with the sizes in the header, but
/// takes no OEM defaults.
bool ubi_part_make_ready(const mtd_partition& volume, const uint8_t* header);

/// Makes the UBI partition ready and writes contents that are held in memory.
bool ubi_part_write(const mtd_partition& volume, const uint8_t* header, const uint8_t* contents);

/// Writes contents while they arrive at `fd`; their image checksum is left in `*checksum`. `format_allowed`
/// makes it a whole installation: a clean UBI partition is formatted first, the bank schema is changed if
/// need be, and the Python packages are saved before and put back afterwards. Without it formatting, schema
/// and saving must have been done by image_prepare_system(), and image_finalize_system() puts the packages
/// back.
bool ubi_part_write_fd(const mtd_partition& volume, const uint8_t* header, int fd, bool format_allowed,
                       uint64_t* checksum);
