// The product information file of a root file system, lines of a shell script:
// VEXO_PRODUCT_VERSION="3.1.0.0R1".
#pragma once

#include "analysis/record.h"

/// Takes version and product code from the file at `path` into `record`: the text between the first and the
/// last double quote behind the key, cut to the field; the last line of a key counts. What is not there, or
/// no file, leaves the record as it is.
void product_info_read(const char* path, flash_analysis* record);
