// Is a partition clean? It is when every byte of its good blocks reads as 0xFF.
#pragma once

/// Result: true when the MTD partition at `dev_name` is clean; false when not, and when it cannot be read.
/// Every call pauses two seconds before it touches the device, which may be busy with its last erase. In a
/// command that Ctrl-C ends (util/signals.h) the check ends with it, and answers false.
bool flash_is_clean(const char* dev_name);

/// The same for the partition that the flash map names `part_name`; false when it names none.
bool ubi_is_clean(const char* part_name);
