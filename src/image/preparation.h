// What a network installation does before and after its second transfer, from the headers that the first one
// has saved in `header_path`. Every header is checked; only parts that `mask` selects (one bit per contents
// type) are acted on. Results: true, or false after the first error.
#pragma once

#include <cstdint>

#include "mtd/partition_table.h"

/// Erases and formats what the image will replace, and makes the bank schema suit it.
bool image_prepare_system(const char* header_path, mtd_banks bank, uint32_t mask);

/// Completes what needs a last step: puts the saved Python packages back.
bool image_finalize_system(const char* header_path, mtd_banks bank, uint32_t mask);
