// How much of a JFFS2 partition is in use, as the tool that dumps one tells it.
#pragma once

#include <cstdint>

#include "analysis/record.h"

/// Analyses the JFFS2 partition at `dev_name`. Result: true with the record filled when it holds live data;
/// false when it does not, or, after an error, when the tool could not be started.
bool flash_analyze_jffs2(const char* dev_name, flash_analysis* record);

/// Takes a line of the tool's ("Empty space: 4096, dirty space: 100, ...") about a partition of `size` bytes;
/// a number that is missing counts as 0. Stores the bytes that are not empty. Result: true when there is live
/// data.
bool jffs2_space_in_use(const char* line, uint32_t size, uint64_t* used);
