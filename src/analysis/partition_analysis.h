// What a partition holds: recognised by its contents, with size, checksum, version and product code.
#pragma once

#include "analysis/record.h"

/// Analyses the partition or volume at `dev_name` by its kind of image (mtd_images) and format (mtd_formats).
/// Result: 1 with the record filled, 0 when the contents were not recognised or could not be read (after an
/// error).
int flash_analyze(const char* dev_name, int image, int format, flash_analysis* record);

/// The same for a JFFS2 partition; it is recognised when it holds live data.
int flash_analyze_jffs2(const char* dev_name, flash_analysis* record);
