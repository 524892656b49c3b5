// Attaching the UBI device and detaching it. Tools run: /usr/sbin/ubiattach, /usr/sbin/ubidetach, /sbin/mdev.
#include "ubi/device.h"

#include <cstdio>
#include <cstring>

#include "util/exec.h"
#include "util/log.h"

namespace {

// Calls `act` for the MTD partitions that the UBI device lives on. Result: false when one call failed.
template <typename Act>
bool for_each_carrier(const char* ubi_dev_name, Act act) {
  bool all = true;
  const mtd_partition* row = nullptr;
  while ((row = mtd_get_by_type(row, mtd_type_any)) != nullptr) {
    if (strcmp(mtd_image_string[row->image], ubi_dev_name) == 0) {
      all = act(*row) && all;
    }
  }
  return all;
}

}  // namespace

bool ubi_attach(const char* ubi_dev_name) {
  log_printf(level_trace, "%s: ubi_dev_name=%s\n", __func__, ubi_dev_name);
  int number = 0;
  // NOLINTNEXTLINE(cert-err34-c): the name comes from the partition table
  if (sscanf(ubi_dev_name, "ubi%i", &number) != 1) {
    log_printf(level_error, "Invalid ubi device=%s\n", ubi_dev_name);
    return false;
  }
  const bool attached = for_each_carrier(ubi_dev_name, [=](const mtd_partition& row) {
    command_line line;
    if (compose_command(line, "/usr/sbin/ubiattach /dev/ubi_ctrl -d %i -p %s%s", number, row.dev_name,
                        ubi_quiet_suffix()) &&
        run_command_quiet(line.text())) {
      return true;
    }
    log_printf(level_error, "Failed to attach %s to %s\n", row.dev_name, ubi_dev_name);
    return false;
  });
  ubi_make_nodes();
  return attached;
}

bool ubi_detach(const char* ubi_dev_name) {
  log_printf(level_trace, "%s: ubi_dev_name=%s\n", __func__, ubi_dev_name);
  return for_each_carrier(ubi_dev_name, [](const mtd_partition& row) {
    command_line line;
    return compose_command(line, "/usr/sbin/ubidetach /dev/ubi_ctrl -p %s%s", row.dev_name,
                           ubi_quiet_suffix()) &&
           run_command_quiet(line.text());
  });
}

void ubi_make_nodes() {
  command_line line;
  if (compose_command(line, "/sbin/mdev -s%s", ubi_quiet_suffix())) {
    run_command_quiet(line.text());
  }
}

const char* ubi_quiet_suffix() {
  return log_level <= level_progress ? " &> /dev/null" : "";
}
