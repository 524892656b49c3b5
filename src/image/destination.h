// Where a part of an image goes on this device.
#pragma once

#include <cstdint>

#include "mtd/partition_table.h"

/// Result: 1 when the device can take contents of this type, else 0 after an error: UBIFS images must have
/// been made for the erase block size of the UBI partition.
int image_validate_destination(uint32_t contents_type);

/// Result: the row that takes contents of this type for `bank` (mtd_bank_1, _2 or _single), or null after an
/// error that names `caller`.
const mtd_partition* image_find_destination(const char* caller, uint32_t contents_type, int bank);

/// Result: true when there are partitions for contents of this type on this device, in whatever bank.
bool image_contents_has_destination(uint32_t contents_type);

/// Result: true when the row is a UBI volume, false when it is written raw.
bool image_destination_is_ubi(const mtd_partition& row);

/// Result: true when the partition of a part of this type gets the header in front of the contents.
bool image_contents_keep_header(uint32_t contents_type);

/// Result: true when a part of this type makes its bank bootable, so that the boot bank is switched to it.
bool image_contents_switch_bank(uint32_t contents_type);

/// Result: true when a mask with one bit per contents type selects this one.
bool image_mask_selects(uint32_t mask, uint32_t contents_type);

/// Result: true when a part of this type is to be skipped, because the mask does not select it. A type
/// without a destination is never skipped: an image with such a part is not for this device.
bool image_mask_skips(uint32_t mask, uint32_t contents_type);
