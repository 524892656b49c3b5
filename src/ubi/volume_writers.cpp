// See volume_writers.h. Tools run: /usr/sbin/ubiupdatevol, tar, /bin/chmod, /usr/bin/install.
#include "ubi/volume_writers.h"

#include "mtd/partition_table.h"
#include "ubi/attachment.h"
#include "ubi/schema.h"
#include "util/exec.h"
#include "util/log.h"
#include "util/stream.h"

namespace {

void trace_writer(const char* writer, unsigned level, const char* mtd_dev_name, const char* ubi_dev_name,
                  size_t size) {
  log_printf(level, "%s: mtd_dev_name=%s ubi_dev_name=%s src_len=%u\n", writer, mtd_dev_name, ubi_dev_name,
             static_cast<unsigned>(size));
}

// Result: the row of a volume, or null after an error.
const mtd_partition* find_volume(const char* mtd_dev_name) {
  const mtd_partition* row = mtd_get_by_dev_name(mtd_dev_name);
  if (row == nullptr) {
    log_printf(level_error, "No entry in mtd table for %s\n", mtd_dev_name);
  }
  return row;
}

bool start_update(ubi_attachment& frame, const char* mtd_dev_name, size_t size) {
  command_line line;
  return compose_command(line, "/usr/sbin/ubiupdatevol %s -s %u -", mtd_dev_name,
                         static_cast<unsigned>(size)) &&
         frame.start_tool(line);
}

// The archive writers: `feed` hands the archive to the unpacking tool and ends its input.
template <typename Feed>
bool unpack_rootfs(const char* mtd_dev_name, const char* ubi_dev_name, Feed feed) {
  const mtd_partition* row = find_volume(mtd_dev_name);
  if (row == nullptr) {
    return false;
  }
  ubi_attachment frame(ubi_dev_name, ubi_attachment::on_exit::unmount_and_detach);
  command_line line;
  if (!frame.attached() || ubi_change_rootfs_schema_if_needed(mtd_dev_name) == 0 ||
      !compose_command(line, "/usr/sbin/ubiupdatevol %s -t", mtd_dev_name) ||
      exec_system_cmd(line.text()) != 0) {
    return false;
  }
  if (!frame.mount(mtd_type_string[row->type], *row)) {
    log_printf(level_error, "Failed to mount rootfs for update\n");
    return false;
  }
  if (!compose_command(line, "tar -mxJf - -C %s", ubi_mount_point) || !frame.start_tool(line) ||
      !feed(frame)) {
    return false;
  }
  // The archive tool drops the set-user-id bit.
  if (!compose_command(line, "/bin/chmod 4755 %s/bin/busybox", ubi_mount_point) ||
      exec_system_cmd_quiet(line.text()) != 0) {
    log_printf(level_error, "Failed chmod 4755 /bin/busybox\n");
    return false;
  }
  return true;
}

}  // namespace

int ubi_write_buffer_ubifs(const char* mtd_dev_name, const char* ubi_dev_name, const uint8_t* buffer,
                           size_t size) {
  trace_writer(__func__, level_trace, mtd_dev_name, ubi_dev_name, size);
  ubi_attachment frame(ubi_dev_name, ubi_attachment::on_exit::detach);
  if (!frame.attached() || ubi_change_rootfs_schema_if_needed(mtd_dev_name) == 0 ||
      !start_update(frame, mtd_dev_name, size) || !frame.feed(buffer, size)) {
    return 0;
  }
  frame.finish_tool();
  return 1;
}

int ubi_write_buffer_ubifs_fd(const char* mtd_dev_name, const char* ubi_dev_name, int fd,
                              const uint8_t* header, uint32_t length, int change_schema, uint64_t* checksum) {
  trace_writer(__func__, level_verbose, mtd_dev_name, ubi_dev_name, length);
  log_printf(level_verbose, "ubi_write_buffer_ubifs_fd header:%s\n", header != nullptr ? "yes" : "no");
  ubi_attachment frame(ubi_dev_name, ubi_attachment::on_exit::detach);
  if (!frame.attached() || (change_schema != 0 && ubi_change_rootfs_schema_if_needed(mtd_dev_name) == 0)) {
    return 0;
  }
  const size_t size = size_t{length} + (header != nullptr ? image_header_size : 0);
  // "firmare": fixtures of the production line wait for the text as it is.
  return start_update(frame, mtd_dev_name, size) &&
                 frame.stream_to_tool(fd, header, length, checksum,
                                      {.writer = __func__, .content = "firmare"})
             ? 1
             : 0;
}

int ubi_write_buffer_tar_lzma(const char* mtd_dev_name, const char* ubi_dev_name, const uint8_t* buffer,
                              size_t size) {
  trace_writer(__func__, level_trace, mtd_dev_name, ubi_dev_name, size);
  const auto feed = [=](ubi_attachment& frame) {
    if (!frame.feed(buffer, size)) {
      return false;
    }
    frame.finish_tool();
    return true;
  };
  return unpack_rootfs(mtd_dev_name, ubi_dev_name, feed) ? 1 : 0;
}

int ubi_write_buffer_tar_lzma_fd(const char* mtd_dev_name, const char* ubi_dev_name, int fd,
                                 const uint8_t* header, uint32_t length, uint64_t* checksum) {
  trace_writer(__func__, level_trace, mtd_dev_name, ubi_dev_name, length);
  const auto feed = [=, writer = __func__](ubi_attachment& frame) {
    return frame.stream_to_tool(fd, header, length, checksum, {.writer = writer});
  };
  return unpack_rootfs(mtd_dev_name, ubi_dev_name, feed) ? 1 : 0;
}

int ubi_write_file_into_fs(const char* mtd_dev_name, const char* ubi_dev_name, const char* src_file,
                           const char* dst_dir, const char* dst_file, const char* dst_perm) {
  log_printf(level_trace,
             "%s: mtd_dev_name=%s ubi_dev_name=%s src_file=%s dst_dir=%s dst_file=%s dst_perm=%s\n", __func__,
             mtd_dev_name, ubi_dev_name, src_file, dst_dir, dst_file, dst_perm);
  const mtd_partition* row = find_volume(mtd_dev_name);
  if (row == nullptr) {
    return 0;
  }
  ubi_attachment frame(ubi_dev_name, ubi_attachment::on_exit::unmount_and_detach);
  if (!frame.attached()) {
    return 0;
  }
  if (!frame.mount(ubi_dev_name, *row)) {
    log_printf(level_error, "Failed to mount %s:%s\n", ubi_dev_name, row->part_name);
    return 0;
  }
  command_line line;
  if (!compose_command(line, "/usr/bin/install -D -m%s %s %s%s%s &> /dev/null", dst_perm, src_file,
                       ubi_mount_point, dst_dir, dst_file) ||
      exec_system_cmd_quiet(line.text()) != 0) {
    log_printf(level_error, "Failed to install file to %s/%s within %s:%s\n", dst_dir, dst_file, ubi_dev_name,
               row->part_name);
    return 0;
  }
  return 1;
}

int ubi_write_file(const char* mtd_dev_name, const char* ubi_dev_name, const char* filename) {
  log_printf(level_trace, "%s: mtd_dev_name=%s ubi_dev_name=%s filename=%s\n", __func__, mtd_dev_name,
             ubi_dev_name, filename);
  ubi_attachment frame(ubi_dev_name, ubi_attachment::on_exit::detach);
  command_line line;
  return frame.attached() && ubi_change_rootfs_schema_if_needed(mtd_dev_name) != 0 &&
                 compose_command(line, "/usr/sbin/ubiupdatevol %s %s", mtd_dev_name, filename) &&
                 exec_system_cmd(line.text()) == 0
             ? 1
             : 0;
}
