// The size of the UBI partition comes from the kernel, the wanted one from the boot environment.
#include "mtd/startup.h"

#include "mtd/mtdparts.h"
#include "mtd/partition_table.h"
#include "mtd/proc_mtd.h"
#include "mtd/repartition.h"
#include "util/log.h"

void mtd_init() {
  ubi0_mtd_size_max = mtd_name_to_size("ubi0");
  if (ubi0_mtd_size_max == 0) {
    // Older kernels of the device list the partition without a name.
    ubi0_mtd_size_max = mtd_name_to_size("<NULL>");
  }
  uint32_t size_kib = 0;
  uint64_t wanted = ubi0_mtd_size_max;
  if (ubi_get_mtd_size_from_env("ubi0", &size_kib)) {
    wanted = uint64_t{size_kib} * 1024;
  }
  if (ubi0_mtd_size_max > wanted && !mtd_partition_split("ubi0", wanted, ubi0_mtd_size_max - wanted)) {
    log_printf(level_error, "Failed to repartition ubi mtd!!!\n");
  }
  mtd_init_dev_names();
}
