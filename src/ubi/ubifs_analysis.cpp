// See ubifs_analysis.h.
#include "ubi/ubifs_analysis.h"

#include "flash/clean_check.h"
#include "mtd/partition_table.h"

int ubi_is_clean(const char* part_name) {
  const mtd_partition* row = mtd_get_by_name(part_name);
  return row != nullptr ? flash_is_clean(row->dev_name) : 0;
}
