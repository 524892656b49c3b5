// See volume.h. Tools run: /usr/sbin/ubiattach, ubidetach, ubimkvol, ubirsvol, ubiupdatevol, /sbin/mdev.
// Paths: /sys/class/ubi/ubi0 (Documentation/ABI/stable/sysfs-class-ubi of the kernel).
#include "ubi/volume.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "mtd/partition_table.h"
#include "util/exec.h"
#include "util/log.h"

namespace {

// The tools' own output is shown from VERBOSE on.
const char* quiet_suffix() {
  return log_level <= level_progress ? " &> /dev/null" : "";
}

// The parts of "/dev/ubiX_Y".
struct volume_id {
  int device;
  int volume;
};

bool parse_volume(const char* dev_name, volume_id* id) {
  // NOLINTNEXTLINE(cert-err34-c): the paths come from the partition table
  return sscanf(dev_name, "/dev/ubi%i_%i", &id->device, &id->volume) == 2;
}

bool run_quietly(const command_line& line) {
  return exec_system_cmd_quiet(line.text()) == 0;
}

bool make_device_nodes() {
  command_line line;
  return compose_command(line, "/sbin/mdev -s%s", quiet_suffix()) && run_quietly(line);
}

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

// The number on the first line of a file in sysfs, -1 when there is none.
int64_t read_number(const char* caller, const char* path) {
  log_printf(level_verbose, "%s: fopen(%s)\n", caller, path);
  FILE* file = fopen(path, "re");
  if (file == nullptr) {
    return -1;
  }
  char line[128];
  const int64_t number = fgets(line, sizeof line, file) != nullptr ? strtoll(line, nullptr, 10) : -1;
  fclose(file);
  return number;
}

// An attribute of a volume. The directory is always that of ubi0, the only UBI device.
int64_t read_volume_number(const char* caller, const char* dev_name, const char* attribute) {
  constexpr size_t dev_prefix = sizeof "/dev/" - 1;
  text_buffer<128> path;
  if (strlen(dev_name) < dev_prefix ||
      !path.format("/sys/class/ubi/ubi0/%s/%s", dev_name + dev_prefix, attribute)) {
    return -1;
  }
  return read_number(caller, path.text());
}

}  // namespace

int ubi_attach(const char* ubi_dev_name) {
  log_printf(level_trace, "%s: ubi_dev_name=%s\n", __func__, ubi_dev_name);
  int number = 0;
  // NOLINTNEXTLINE(cert-err34-c): the name comes from the partition table
  if (sscanf(ubi_dev_name, "ubi%i", &number) != 1) {
    log_printf(level_error, "Invalid ubi device=%s\n", ubi_dev_name);
    return 0;
  }
  const bool attached = for_each_carrier(ubi_dev_name, [=](const mtd_partition& row) {
    command_line line;
    if (compose_command(line, "/usr/sbin/ubiattach /dev/ubi_ctrl -d %i -p %s%s", number, row.dev_name,
                        quiet_suffix()) &&
        run_quietly(line)) {
      return true;
    }
    log_printf(level_error, "Failed to attach %s to %s\n", row.dev_name, ubi_dev_name);
    return false;
  });
  make_device_nodes();
  return attached ? 1 : 0;
}

int ubi_detach(const char* ubi_dev_name) {
  log_printf(level_trace, "%s: ubi_dev_name=%s\n", __func__, ubi_dev_name);
  const bool detached = for_each_carrier(ubi_dev_name, [](const mtd_partition& row) {
    command_line line;
    return compose_command(line, "/usr/sbin/ubidetach /dev/ubi_ctrl -p %s%s", row.dev_name, quiet_suffix()) &&
           run_quietly(line);
  });
  return detached ? 1 : 0;
}

int ubi_mkvol(const char* dev_name, int size_kib, const char* part_name) {
  log_printf(level_trace, "%s: dev_name=%s size_kib=%i part_name=%s\n", __func__, dev_name, size_kib,
             part_name);
  volume_id id;
  if (!parse_volume(dev_name, &id)) {
    log_printf(level_error, "Invalid device=%s\n", dev_name);
    return 0;
  }
  command_line line;
  const bool composed = size_kib >= 1
                            ? compose_command(line, "/usr/sbin/ubimkvol /dev/ubi%d -n %d -s %dKiB -N %s%s",
                                              id.device, id.volume, size_kib, part_name, quiet_suffix())
                            : compose_command(line, "/usr/sbin/ubimkvol /dev/ubi%d -n %d -m -N %s%s",
                                              id.device, id.volume, part_name, quiet_suffix());
  if (!composed || !run_quietly(line)) {
    return 0;
  }
  make_device_nodes();
  return 1;
}

int ubi_rsvol(const char* dev_name, int num_lebs) {
  log_printf(level_trace, "%s: dev_name=%s num_lebs=%i\n", __func__, dev_name, num_lebs);
  if (num_lebs <= 0) {
    log_printf(level_error, "Cannot resize %s to %i LEBs\n", dev_name, num_lebs);
    return 0;
  }
  volume_id id;
  if (!parse_volume(dev_name, &id)) {
    log_printf(level_error, "Invalid dev_name=%s\n", dev_name);
    return 0;
  }
  command_line line;
  return compose_command(line, "/usr/sbin/ubirsvol /dev/ubi%d -n %d -S %i%s", id.device, id.volume, num_lebs,
                         quiet_suffix()) &&
                 run_quietly(line)
             ? 1
             : 0;
}

int ubi_erase_volume(const char* dev_name, const char* ubi_dev_name) {
  log_printf(level_trace, "%s: mtd_dev_name=%s ubi_dev_name=%s\n", __func__, dev_name, ubi_dev_name);
  command_line line;
  const bool erased = ubi_attach(ubi_dev_name) != 0 &&
                      compose_command(line, "/usr/sbin/ubiupdatevol %s -t", dev_name) &&
                      exec_system_cmd(line.text()) == 0;
  ubi_detach(ubi_dev_name);
  return erased ? 1 : 0;
}

int ubi_get_volume_size_in_lebs(const char* dev_name) {
  log_printf(level_trace, "%s: dev_name=%s\n", __func__, dev_name);
  return static_cast<int>(read_volume_number(__func__, dev_name, "reserved_ebs"));
}

int ubi_get_free_num_lebs() {
  log_printf(level_trace, "%s:\n", __func__);
  return static_cast<int>(read_number(__func__, "/sys/class/ubi/ubi0/avail_eraseblocks"));
}

int64_t ubi_get_volume_size_in_bytes(const char* dev_name) {
  log_printf(level_trace, "%s: dev_name=%s\n", __func__, dev_name);
  return read_volume_number(__func__, dev_name, "data_bytes");
}

int ubi_get_root_from_dev_name(const char* dev_name, char* buffer, size_t size) {
  log_printf(level_trace, "%s:\n", __func__);
  volume_id id;
  if (!parse_volume(dev_name, &id)) {
    return 0;
  }
  snprintf(buffer, size, "/dev/ubi%d", id.device);
  return 1;
}
