// Read-only questions about the UBI device: what does a volume hold, is a file in it.
#pragma once

#include <cstdint>

#include "analysis/record.h"

/// Fills `record` with the volume's data size (-1 sign-extended when unknown) and with version and product
/// code of the product information file in it ("-" where there is none). Result: 1 when the volume could be
/// mounted; 0 else, after an error when the table has no such volume.
int ubi_ubifs_analyze(const char* dev_name, flash_analysis* record);

/// Looks for a file inside the volume named `part_name`; `directory` carries its own slashes ("/cfg/").
/// Result: 1 with the size in `*size` (unless null), or 0 with 0 there; an erased device is not attached.
int ubi_ubifs_analyze_file_within(const char* part_name, const char* directory, const char* filename,
                                  uint32_t* size);
