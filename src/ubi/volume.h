// The UBI device and its volumes, through the mtd-utils. The device is attached for the span of one operation
// only. `ubi_dev_name` is "ubi0" everywhere: the name of the MTD partition, and the type of the volumes'
// rows. A volume path is "/dev/ubiX_Y", X the device's number and Y the volume's id.
#pragma once

#include <cstddef>
#include <cstdint>

/// Attaches the UBI device and makes the nodes of its volumes. Result: 1, or 0 after an error; nothing is run
/// for a name that is not "ubi" and a number.
int ubi_attach(const char* ubi_dev_name);

/// Detaches it. Result: 1, or 0 when the tool failed, which it also does when nothing is attached.
int ubi_detach(const char* ubi_dev_name);

/// Makes a volume of `size_kib` KiB, or of all that is left when that is 0 or less, and its node. Result: 1
/// or 0.
int ubi_mkvol(const char* dev_name, int size_kib, const char* part_name);

/// Resizes a volume to `num_lebs` logical erase blocks. Result: 1 or 0.
int ubi_rsvol(const char* dev_name, int num_lebs);

/// Empties a volume, attaching the device for it. Result: 1 or 0.
int ubi_erase_volume(const char* dev_name, const char* ubi_dev_name);

/// Result: the logical erase blocks of a volume, or those that are free on the device ubi0; -1 when sysfs
/// does not tell.
int ubi_get_volume_size_in_lebs(const char* dev_name);
int ubi_get_free_num_lebs();

/// Result: the bytes of data in a volume, -1 when sysfs does not tell.
int64_t ubi_get_volume_size_in_bytes(const char* dev_name);

/// Writes "/dev/ubiX" of a volume path into `buffer` of `size` bytes. Result: 1 when the path was one.
int ubi_get_root_from_dev_name(const char* dev_name, char* buffer, size_t size);
