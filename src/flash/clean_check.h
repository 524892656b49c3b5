// The system's notion of clean: every byte of every good block reads as 0xFF.
#pragma once

/// Result: 1 when the MTD partition at `dev_name` is clean; 0 when not, and when it cannot be read. Every
/// call pauses two seconds before it touches the device, for a flash that is still busy with its last erase.
int flash_is_clean(const char* dev_name);

/// Result: 1 when the MTD partition of the table row named `part_name` is entirely erased; 0 when not, or
/// without such a row. Pauses like flash_is_clean().
int ubi_is_clean(const char* part_name);
