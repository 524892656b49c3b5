// Tools run: /bin/mount, /bin/umount, and those of ubi/device. Mounts volumes on /mnt.
#include "ubi/attachment.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "ubi/device.h"
#include "util/log.h"
#include "util/stream.h"

ubi_attachment::ubi_attachment(const char* ubi_dev_name, on_exit exit)
    : ubi_dev_name_(ubi_dev_name), exit_(exit), attached_(ubi_attach(ubi_dev_name)) {}

ubi_attachment::~ubi_attachment() {
  survive_tool_.reset();
  const bool returned = give_back();
  if (tool_) {
    // A tool whose input was left open still holds the volume. Now its input ends, and it with it.
    tool_.reset();
    if (!returned) {
      give_back();
    }
  }
}

// Ctrl-C must not end one of these tools: the volume would stay mounted, or the device attached, for good.
// One that was pressed takes effect between the two: the second tool's runner would swallow it.
bool ubi_attachment::give_back() {
  bool unmounted = true;
  if (exit_ == on_exit::unmount_and_detach) {
    const sigint_deferred until_unmounted;
    command_line line;
    unmounted = compose_command(line, "/bin/umount %s &> /dev/null", ubi_mount_point) &&
                run_command_quiet(line.text());
  }
  const sigint_deferred until_detached;
  return ubi_detach(ubi_dev_name_) && unmounted;
}

bool ubi_attachment::mount(const mtd_partition& volume) {
  command_line line;
  return compose_command(line, "/bin/mount -t ubifs -o sync,compr=zlib %s:%s %s &> /dev/null",
                         ubi_device_of(volume), volume.part_name, ubi_mount_point) &&
         run_command_quiet(line.text());
}

bool ubi_attachment::mount_for_update(const mtd_partition& volume) {
  if (mount(volume)) {
    return true;
  }
  log_printf(level_error, "Failed to mount rootfs for update\n");
  return false;
}

bool ubi_attachment::start_tool(const command_line& line) {
  log_printf(level_verbose, "popen(%s)\n", line.text());
  tool_.emplace(line.text(), "w");
  if (!*tool_) {
    tool_.reset();
    log_printf(level_error, "Failed to open pipe for write\n");
    return false;
  }
  // Only now: the tool itself must die of a broken pipe like any other.
  survive_tool_.emplace();
  return true;
}

bool ubi_attachment::write_all(const uint8_t* data, size_t size) {
  while (size > 0) {
    const ssize_t written = write(tool_->fd(), data, size);
    if (written <= 0) {
      return false;
    }
    data += written;
    size -= static_cast<size_t>(written);
  }
  return true;
}

bool ubi_attachment::feed(const uint8_t* data, size_t size) {
  if (write_all(data, size)) {
    return true;
  }
  log_printf(level_error, "\nError writing to pipe\n");
  return false;
}

void ubi_attachment::finish_tool() {
  survive_tool_.reset();
  tool_.reset();
}

bool ubi_attachment::feed_all(const uint8_t* data, size_t size) {
  if (!feed(data, size)) {
    return false;
  }
  finish_tool();
  return true;
}

bool ubi_attachment::stream_to_tool(int fd, const uint8_t* header, uint32_t length, uint64_t* checksum,
                                    stream_texts texts) {
  if (header != nullptr && !feed(header, image_header_size)) {
    return false;
  }
  const auto pass_on = [this](const uint8_t* piece, size_t size) { return write_all(piece, size); };
  const stream_status status = stream_receive({.fd = fd, .total = length}, checksum, pass_on);
  switch (status) {
    case stream_status::complete:
      break;
    case stream_status::sink_failed:
      log_printf(level_error, "Failed to write firmware image [%s]\n", strerror(errno));
      log_printf(level_error, "\nError writing to pipe\n");
      return false;
    case stream_status::ended:
    case stream_status::wait_failed:
      log_printf(level_error, "Failed to read %s image [%s]\n", texts.content, strerror(errno));
      if (status == stream_status::ended) {
        finish_tool();
      }
      return false;
  }
  log_printf(level_verbose, "%s received %d bytes\n", texts.writer, static_cast<int>(length));
  finish_tool();
  return true;
}
