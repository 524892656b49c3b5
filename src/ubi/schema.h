// The space of the root file systems belongs to banks 1 and 2 (dual schema) or to one bank (single). The
// volumes of the other schema are kept at one block each, so the schema can be read off the volumes and
// changed by resizing.
#pragma once

#include "mtd/partition_table.h"

/// Makes the layout suit the volume that is about to be written: checks that it agrees with the active boot
/// bank, and resizes when the target belongs to the other schema. The UBI device must be attached. Result:
/// true, or false after an error. After a failed resize the volumes that were resized before it keep their
/// new size. Without a boot bank nothing is compared or resized.
bool ubi_change_rootfs_schema_if_needed(const mtd_partition& target);

/// The same for a volume's path; a path without a row is an error.
bool ubi_change_rootfs_schema_if_needed(const char* dev_name);
