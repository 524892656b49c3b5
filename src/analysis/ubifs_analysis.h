// Questions about what is in a UBI volume, answered by mounting it: its product information, is a file in it.
#pragma once

#include <cstdint>

#include "analysis/record.h"
#include "mtd/partition_table.h"

/// Fills `record` with the volume's data size (-1 sign-extended when unknown) and with version and product
/// code of the product information file in it ("-" where there is none). Result: true when it could be
/// mounted.
bool ubi_ubifs_analyze(const mtd_partition& row, flash_analysis* record);
/// The same for the row of the flash map with the node `dev_name`; false after an error when there is none.
bool ubi_ubifs_analyze(const char* dev_name, flash_analysis* record);

/// Looks for a file in the volume that the flash map names `part_name`; `directory` has a slash at both ends
/// ("/cfg/"). Result: true with the file's size in `*size` (unless null), or false with 0 there. An erased
/// device is not attached.
bool ubi_ubifs_analyze_file_within(const char* part_name, const char* directory, const char* filename,
                                   uint32_t* size);
