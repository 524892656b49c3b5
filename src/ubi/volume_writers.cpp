// The writers of whole contents. Tools run: /usr/sbin/ubiupdatevol, tar, /bin/chmod, /usr/bin/install.
#include "ubi/volume_writers.h"

#include "ubi/attachment.h"
#include "ubi/device.h"
#include "ubi/schema.h"
#include "ubi/volume.h"
#include "util/exec.h"
#include "util/log.h"
#include "util/stream.h"

namespace {

void trace_writer(const char* writer, unsigned level, const mtd_partition& volume, size_t size) {
  log_printf(level, "%s: mtd_dev_name=%s ubi_dev_name=%s src_len=%u\n", writer, volume.dev_name,
             ubi_device_of(volume), static_cast<unsigned>(size));
}

bool start_update(ubi_attachment& ubi, const mtd_partition& volume, size_t size) {
  command_line line;
  return compose_command(line, "/usr/sbin/ubiupdatevol %s -s %u -", volume.dev_name,
                         static_cast<unsigned>(size)) &&
         ubi.start_tool(line);
}

// The archive tool drops the set-user-id bit.
bool make_busybox_setuid() {
  command_line line;
  if (compose_command(line, "/bin/chmod 4755 %s/bin/busybox", ubi_mount_point) &&
      run_command_quiet(line.text())) {
    return true;
  }
  log_printf(level_error, "Failed chmod 4755 /bin/busybox\n");
  return false;
}

// `feed` hands the archive to the unpacking tool and ends its input.
template <typename Feed>
bool unpack_rootfs(const mtd_partition& volume, Feed feed) {
  ubi_attachment ubi(ubi_device_of(volume), ubi_attachment::on_exit::unmount_and_detach);
  command_line line;
  return ubi.attached() && ubi_change_rootfs_schema_if_needed(volume) && ubi_empty_volume(volume.dev_name) &&
         ubi.mount_for_update(volume) && compose_command(line, "tar -mxJf - -C %s", ubi_mount_point) &&
         ubi.start_tool(line) && feed(ubi) && make_busybox_setuid();
}

}  // namespace

bool ubi_write_buffer_ubifs(const mtd_partition& volume, const uint8_t* buffer, size_t size) {
  trace_writer(__func__, level_trace, volume, size);
  ubi_attachment ubi(ubi_device_of(volume), ubi_attachment::on_exit::detach);
  return ubi.attached() && ubi_change_rootfs_schema_if_needed(volume) && start_update(ubi, volume, size) &&
         ubi.feed_all(buffer, size);
}

bool ubi_write_buffer_ubifs_fd(const mtd_partition& volume, int fd, const uint8_t* header, uint32_t length,
                               bool change_schema, uint64_t* checksum) {
  trace_writer(__func__, level_verbose, volume, length);
  log_printf(level_verbose, "ubi_write_buffer_ubifs_fd header:%s\n", header != nullptr ? "yes" : "no");
  ubi_attachment ubi(ubi_device_of(volume), ubi_attachment::on_exit::detach);
  const size_t size = size_t{length} + (header != nullptr ? image_header_size : 0);
  // "firmare": fixtures of the production line wait for the text as it is.
  return ubi.attached() && (!change_schema || ubi_change_rootfs_schema_if_needed(volume)) &&
         start_update(ubi, volume, size) &&
         ubi.stream_to_tool(fd, header, length, checksum, {.writer = __func__, .content = "firmare"});
}

bool ubi_write_buffer_tar_lzma(const mtd_partition& volume, const uint8_t* buffer, size_t size) {
  trace_writer(__func__, level_trace, volume, size);
  return unpack_rootfs(volume, [=](ubi_attachment& ubi) { return ubi.feed_all(buffer, size); });
}

bool ubi_write_buffer_tar_lzma_fd(const mtd_partition& volume, int fd, const uint8_t* header, uint32_t length,
                                  uint64_t* checksum) {
  trace_writer(__func__, level_trace, volume, length);
  return unpack_rootfs(volume, [=, writer = __func__](ubi_attachment& ubi) {
    return ubi.stream_to_tool(fd, header, length, checksum, {.writer = writer});
  });
}

bool ubi_write_file_into_fs(const mtd_partition& volume, const char* src_file, const char* dst_dir,
                            const char* dst_file, const char* dst_perm) {
  const char* ubi_dev_name = ubi_device_of(volume);
  log_printf(level_trace,
             "%s: mtd_dev_name=%s ubi_dev_name=%s src_file=%s dst_dir=%s dst_file=%s dst_perm=%s\n", __func__,
             volume.dev_name, ubi_dev_name, src_file, dst_dir, dst_file, dst_perm);
  ubi_attachment ubi(ubi_dev_name, ubi_attachment::on_exit::unmount_and_detach);
  if (!ubi.attached()) {
    return false;
  }
  if (!ubi.mount(volume)) {
    log_printf(level_error, "Failed to mount %s:%s\n", ubi_dev_name, volume.part_name);
    return false;
  }
  command_line line;
  if (!compose_command(line, "/usr/bin/install -D -m%s %s %s%s%s &> /dev/null", dst_perm, src_file,
                       ubi_mount_point, dst_dir, dst_file) ||
      !run_command_quiet(line.text())) {
    log_printf(level_error, "Failed to install file to %s/%s within %s:%s\n", dst_dir, dst_file, ubi_dev_name,
               volume.part_name);
    return false;
  }
  return true;
}

bool ubi_write_file(const mtd_partition& volume, const char* filename) {
  log_printf(level_trace, "%s: mtd_dev_name=%s ubi_dev_name=%s filename=%s\n", __func__, volume.dev_name,
             ubi_device_of(volume), filename);
  const ubi_attachment ubi(ubi_device_of(volume), ubi_attachment::on_exit::detach);
  command_line line;
  return ubi.attached() && ubi_change_rootfs_schema_if_needed(volume) &&
         compose_command(line, "/usr/sbin/ubiupdatevol %s %s", volume.dev_name, filename) &&
         run_command(line.text());
}
