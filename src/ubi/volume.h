// The volumes of the UBI device: making, resizing, emptying, and their sizes. A volume's path is
// "/dev/ubiX_Y", X the number of the UBI device and Y that of the volume. The device must be attached; only
// ubi_erase_volume() does that itself.
#pragma once

#include <cstddef>
#include <cstdint>

/// Makes a volume of `size_kib` KiB, or of all that is left when that is 0 or less, and its node. Result:
/// true, or false; only a path that is none is logged as an error.
bool ubi_mkvol(const char* dev_name, int size_kib, const char* part_name);

/// Resizes a volume to `num_lebs` logical erase blocks. Result: true, or false; an error is logged for a size
/// below 1 and for a path that is none, but not when the tool fails.
bool ubi_rsvol(const char* dev_name, int num_lebs);

/// Empties a volume of the attached device. Result: true, or false after the runner's error.
bool ubi_empty_volume(const char* dev_name);

/// The same with `ubi_dev_name` attached for it and detached afterwards.
bool ubi_erase_volume(const char* dev_name, const char* ubi_dev_name);

/// Result: the logical erase blocks of a volume, or those that are free on the device ubi0; -1 when sysfs
/// does not tell.
int ubi_get_volume_size_in_lebs(const char* dev_name);
int ubi_get_free_num_lebs();

/// Result: the bytes of data in a volume, -1 when sysfs does not tell.
int64_t ubi_get_volume_size_in_bytes(const char* dev_name);

/// Writes "/dev/ubiX" of a volume's path into `buffer` of `size` bytes. Result: true when the path was one.
bool ubi_get_root_from_dev_name(const char* dev_name, char* buffer, size_t size);
