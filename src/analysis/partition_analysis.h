// What a partition holds: recognised by its contents, with size, checksum, version and product code.
#pragma once

#include "analysis/record.h"
#include "mtd/partition_table.h"

/// Analyses the contents of a row into `record`, whatever that held before. Result: true; false when they
/// were not recognised or could not be read; only some read errors are logged.
bool flash_analyze(const mtd_partition& row, flash_analysis* record);
/// The same for a node with contents of kind `image` (mtd_images) in `format` (mtd_formats). A volume is
/// looked up in the flash map by its node.
bool flash_analyze(const char* dev_name, int image, int format, flash_analysis* record);
