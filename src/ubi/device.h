// The UBI device "ubi0", attached to its MTD partition for the span of one operation only. The name is that
// of the MTD partition, too, and the type of the volumes' rows.
#pragma once

#include "mtd/partition_table.h"

/// Attaches the UBI device and makes the nodes of its volumes. Result: true, or false after an error; nothing
/// is run for a name that is not "ubi" and a number.
bool ubi_attach(const char* ubi_dev_name);

/// Detaches it. Result: true, or false without an error when the tool failed, which it also does when nothing
/// is attached.
bool ubi_detach(const char* ubi_dev_name);

/// Result: the name of the UBI device that holds the volume.
inline const char* ubi_device_of(const mtd_partition& volume) {
  return mtd_type_string[volume.type];
}

/// Makes the nodes of volumes that have none yet.
void ubi_make_nodes();

/// Result: what ends the line of a UBI tool: its output is shown from VERBOSE on.
const char* ubi_quiet_suffix();
