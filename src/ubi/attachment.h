// The UBI device attached for one operation: perhaps with a volume mounted, perhaps with a tool that is fed
// with contents, and all of it given back on every way out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "mtd/partition_table.h"
#include "util/command_pipe.h"
#include "util/exec.h"
#include "util/signals.h"

/// Where volumes are mounted.
constexpr const char* ubi_mount_point = "/mnt";

class ubi_attachment {
 public:
  enum class on_exit { detach, unmount_and_detach };

  /// Attaches the UBI device. On destruction the device is detached, whatever came before; with
  /// `unmount_and_detach` /mnt is unmounted first, even if nothing was mounted. `ubi_dev_name` must outlive
  /// the object.
  ubi_attachment(const char* ubi_dev_name, on_exit exit);
  ubi_attachment(const ubi_attachment&) = delete;
  ubi_attachment& operator=(const ubi_attachment&) = delete;
  ~ubi_attachment();

  /// False when the device could not be attached, after an error.
  bool attached() const { return attached_; }

  /// Mounts a volume on /mnt. Logs nothing. Result: true when mounted.
  bool mount(const mtd_partition& volume);
  /// The same with an error when it cannot be mounted.
  bool mount_for_update(const mtd_partition& volume);

  /// Starts a tool that reads what it is fed with from its standard input. Result: true, or false after an
  /// error.
  bool start_tool(const command_line& line);

  /// Feeds the tool with all of the data, ends its input and waits for it. Result: true, or false after an
  /// error. The tool's exit status is not looked at: tools have long complained about images that are good.
  bool feed_all(const uint8_t* data, size_t size);

  struct stream_texts {
    const char* writer;                // begins the end message
    const char* content = "firmware";  // what could not be read
  };
  /// Feeds the tool with `header` (256 bytes, unless null) and `length` bytes received from `fd`, and ends
  /// its input. `*checksum` (unless null) gets the image checksum without the header. Result: true, or false
  /// after an error. After a time-out or a failed write the tool's input stays open until the object is
  /// destroyed.
  bool stream_to_tool(int fd, const uint8_t* header, uint32_t length, uint64_t* checksum, stream_texts texts);

 private:
  bool give_back();
  bool write_all(const uint8_t* data, size_t size);
  bool feed(const uint8_t* data, size_t size);
  void finish_tool();

  const char* ubi_dev_name_;
  on_exit exit_;
  bool attached_;
  std::optional<command_pipe> tool_;
  std::optional<sigpipe_ignored> survive_tool_;
};
