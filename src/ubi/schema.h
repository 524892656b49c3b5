// Who has the space of the root file systems: the two banks (dual) or the single bank. The side not in use is
// kept at one block, so the schema can be read off the volumes and changed by resizing them.
#pragma once

/// Makes the layout suit the volume that is about to be written: checks that it agrees with the active boot
/// bank, and resizes when the target belongs to the other schema. The UBI device must be attached. Result: 1,
/// or 0 after an error; a failed resize leaves the earlier ones in place.
int ubi_change_rootfs_schema_if_needed(const char* dev_name);
