// Read-only questions about the UBI device.
#pragma once

/// Result: 1 when the MTD partition of the table row named `part_name` is entirely erased; 0 when not, or
/// without such a row. Pauses like flash_is_clean().
int ubi_is_clean(const char* part_name);
