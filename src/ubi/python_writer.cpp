// Replacing the Python installation. Tools run: tar, rm, mv, cp, mkdir. Paths: /tmp/python,
// /tmp/site-packages.
#include "ubi/python_writer.h"

#include <sys/vfs.h>

#include <initializer_list>

#include "ubi/attachment.h"
#include "ubi/device.h"
#include "util/exec.h"
#include "util/log.h"

namespace {

constexpr uint32_t required_space = 0x600000;  // bytes
constexpr uint32_t margin = 65535;             // bytes

// The steps around the unpacking are best effort: there may be no installation and no packages yet.
void run_steps(std::initializer_list<const char*> lines) {
  for (const char* line : lines) {
    exec_system_cmd_quiet(line);
  }
}

bool check_space() {
  // What the old installation takes counts as free: it will be replaced.
  run_steps({"rm -rf /tmp/python 2>/dev/null", "mv /mnt/python/ /tmp/ 2>/dev/null"});
  const uint32_t available = getAvailableSpace(ubi_mount_point);
  log_printf(level_verbose, "Computing Python installation space(%u required, %u available)\n",
             required_space, available);
  run_steps({"mv /tmp/python /mnt/ 2>/dev/null"});
  if (available < required_space) {
    log_printf(level_error, "ERROR: Not enough space for Python installation (%u required, %u available)\n",
               required_space, available);
    return false;
  }
  return true;
}

void save_packages() {
  log_printf(level_verbose, "backup user installed packages\n");
  run_steps({"rm -rf /tmp/site-packages/ 2>/dev/null",
             "cp -r /mnt/python/lib/python2.7/site-packages /tmp/ 2>/dev/null",
             "rm -rf /mnt/python/ 2>/dev/null", "mkdir -p /mnt/python/ 2>/dev/null"});
}

void restore_packages() {
  log_printf(level_verbose, "restore user installed packages\n");
  run_steps({"mkdir -p /mnt/python/lib/python2.7/site-packages/ 2>/dev/null",
             "cp -r /tmp/site-packages/* /mnt/python/lib/python2.7/site-packages/ 2>/dev/null"});
}

bool check_space_and_save_packages() {
  if (!check_space()) {
    return false;
  }
  save_packages();
  return true;
}

bool start_unpacking(ubi_attachment& ubi) {
  command_line line;
  return compose_command(line, "tar -xmzaf - -C %s/python/", ubi_mount_point) && ubi.start_tool(line);
}

// Runs `work` with the volume mounted.
template <typename Work>
bool with_mounted_volume(const mtd_partition& volume, Work work) {
  ubi_attachment ubi(ubi_device_of(volume), ubi_attachment::on_exit::unmount_and_detach);
  return ubi.attached() && ubi.mount_for_update(volume) && work(ubi);
}

}  // namespace

bool ubi_write_buffer_python_fs_tar_lzma(const mtd_partition& volume, const uint8_t* buffer, size_t size) {
  log_printf(level_trace, "%s: mtd_dev_name=%s ubi_dev_name=%s src_len=%u\n", __func__, volume.dev_name,
             ubi_device_of(volume), static_cast<unsigned>(size));
  return with_mounted_volume(volume, [=](ubi_attachment& ubi) {
    if (!check_space_and_save_packages() || !start_unpacking(ubi) || !ubi.feed_all(buffer, size)) {
      return false;
    }
    restore_packages();
    return true;
  });
}

bool ubi_python_fs_tar_lzma_fd_prepare(const mtd_partition& volume) {
  log_printf(level_trace, "%s: mtd_dev_name=%s ubi_dev_name=%s\n", __func__, volume.dev_name,
             ubi_device_of(volume));
  return with_mounted_volume(volume, [](ubi_attachment&) { return check_space_and_save_packages(); });
}

bool ubi_write_buffer_python_fs_tar_lzma_fd(const mtd_partition& volume, int fd, const uint8_t* header,
                                            uint32_t length, uint64_t* checksum, bool self_contained) {
  log_printf(level_trace, "%s: mtd_dev_name=%s ubi_dev_name=%s src_len=%u\n", __func__, volume.dev_name,
             ubi_device_of(volume), length);
  return with_mounted_volume(volume, [=](ubi_attachment& ubi) {
    if ((self_contained && !check_space_and_save_packages()) || !start_unpacking(ubi) ||
        !ubi.stream_to_tool(fd, header, length, checksum,
                            {.writer = "ubi_write_buffer_python_fs_tar_lzma_fd total"})) {
      return false;
    }
    if (self_contained) {
      restore_packages();
    }
    return true;
  });
}

bool ubi_python_fs_tar_lzma_fd_finalize(const mtd_partition& volume) {
  log_printf(level_trace, "%s: mtd_dev_name=%s ubi_dev_name=%s\n", __func__, volume.dev_name,
             ubi_device_of(volume));
  return with_mounted_volume(volume, [](ubi_attachment&) {
    restore_packages();
    return true;
  });
}

uint32_t getAvailableSpace(const char* path) {
  struct statfs status;
  if (statfs(path, &status) != 0) {
    return UINT32_MAX;
  }
  const uint32_t block_size = status.f_bsize <= 0 ? 1024 : static_cast<uint32_t>(status.f_bsize);
  const uint32_t free_bytes = static_cast<uint32_t>(status.f_bfree) * block_size;
  return free_bytes <= margin ? 0 : free_bytes - margin;
}
