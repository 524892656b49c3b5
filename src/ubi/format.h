// Formatting the whole UBI device with its fixed layout of volumes.
#pragma once

#include <cstdint>

/// Formats the device: the partition is split or merged to `total_size_kib` KiB (0 = all there is) and the
/// size recorded in the boot environment, then rootfs_1 and rootfs_2 of `rootfs_size_kib` KiB (0 = a quarter
/// of the whole), rootfs_single of one block, vexo_private and vexo_user are made. Result: true, or false
/// after an error, with what was done so far in place. Leaves the device detached.
bool ubi_format(const char* ubi_dev_name, uint32_t rootfs_size_kib, uint32_t total_size_kib);
