// Volumes by their paths. Tools run: /usr/sbin/ubimkvol, ubirsvol, ubiupdatevol. Paths read:
// /sys/class/ubi/ubi0 (Documentation/ABI/stable/sysfs-class-ubi of the kernel).
#include "ubi/volume.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ubi/attachment.h"
#include "ubi/device.h"
#include "util/exec.h"
#include "util/log.h"

namespace {

// The parts of "/dev/ubiX_Y".
struct volume_id {
  int device;
  int volume;
};

bool parse_volume(const char* dev_name, volume_id* id) {
  // NOLINTNEXTLINE(cert-err34-c): the paths come from the partition table
  return sscanf(dev_name, "/dev/ubi%i_%i", &id->device, &id->volume) == 2;
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

// A number of erase blocks; -1 for one that no flash has. The blocks of all volumes together fit an int.
int as_lebs(int64_t number) {
  constexpr int64_t most = INT32_MAX / 4;
  return number >= 0 && number <= most ? static_cast<int>(number) : -1;
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

bool ubi_mkvol(const char* dev_name, int size_kib, const char* part_name) {
  log_printf(level_trace, "%s: dev_name=%s size_kib=%i part_name=%s\n", __func__, dev_name, size_kib,
             part_name);
  volume_id id;
  if (!parse_volume(dev_name, &id)) {
    log_printf(level_error, "Invalid device=%s\n", dev_name);
    return false;
  }
  command_line line;
  const bool composed = size_kib >= 1
                            ? compose_command(line, "/usr/sbin/ubimkvol /dev/ubi%d -n %d -s %dKiB -N %s%s",
                                              id.device, id.volume, size_kib, part_name, ubi_quiet_suffix())
                            : compose_command(line, "/usr/sbin/ubimkvol /dev/ubi%d -n %d -m -N %s%s",
                                              id.device, id.volume, part_name, ubi_quiet_suffix());
  if (!composed || !run_command_quiet(line.text())) {
    return false;
  }
  ubi_make_nodes();
  return true;
}

bool ubi_rsvol(const char* dev_name, int num_lebs) {
  log_printf(level_trace, "%s: dev_name=%s num_lebs=%i\n", __func__, dev_name, num_lebs);
  if (num_lebs <= 0) {
    log_printf(level_error, "Cannot resize %s to %i LEBs\n", dev_name, num_lebs);
    return false;
  }
  volume_id id;
  if (!parse_volume(dev_name, &id)) {
    log_printf(level_error, "Invalid dev_name=%s\n", dev_name);
    return false;
  }
  command_line line;
  return compose_command(line, "/usr/sbin/ubirsvol /dev/ubi%d -n %d -S %i%s", id.device, id.volume, num_lebs,
                         ubi_quiet_suffix()) &&
         run_command_quiet(line.text());
}

bool ubi_empty_volume(const char* dev_name) {
  command_line line;
  return compose_command(line, "/usr/sbin/ubiupdatevol %s -t", dev_name) && run_command(line.text());
}

bool ubi_erase_volume(const char* dev_name, const char* ubi_dev_name) {
  log_printf(level_trace, "%s: mtd_dev_name=%s ubi_dev_name=%s\n", __func__, dev_name, ubi_dev_name);
  const ubi_attachment ubi(ubi_dev_name, ubi_attachment::on_exit::detach);
  return ubi.attached() && ubi_empty_volume(dev_name);
}

int ubi_get_volume_size_in_lebs(const char* dev_name) {
  log_printf(level_trace, "%s: dev_name=%s\n", __func__, dev_name);
  return as_lebs(read_volume_number(__func__, dev_name, "reserved_ebs"));
}

int ubi_get_free_num_lebs() {
  log_printf(level_trace, "%s:\n", __func__);
  return as_lebs(read_number(__func__, "/sys/class/ubi/ubi0/avail_eraseblocks"));
}

int64_t ubi_get_volume_size_in_bytes(const char* dev_name) {
  log_printf(level_trace, "%s: dev_name=%s\n", __func__, dev_name);
  return read_volume_number(__func__, dev_name, "data_bytes");
}

bool ubi_get_root_from_dev_name(const char* dev_name, char* buffer, size_t size) {
  log_printf(level_trace, "%s:\n", __func__);
  volume_id id;
  if (!parse_volume(dev_name, &id)) {
    return false;
  }
  snprintf(buffer, size, "/dev/ubi%d", id.device);
  return true;
}
