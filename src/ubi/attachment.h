// The frame of every operation inside the UBI device: attached, perhaps mounted, perhaps feeding a tool, and
// given back on every way out.
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

  /// Attaches the UBI device. On destruction the volume is unmounted (as asked for, mounted or not) and the
  /// device detached, whatever came before. `ubi_dev_name` must outlive the frame.
  ubi_attachment(const char* ubi_dev_name, on_exit exit);
  ubi_attachment(const ubi_attachment&) = delete;
  ubi_attachment& operator=(const ubi_attachment&) = delete;
  ~ubi_attachment();

  bool attached() const { return attached_; }

  /// Mounts the volume of `row`, of UBI device `ubi_device`, on /mnt. Logs nothing. Result: true when
  /// mounted.
  bool mount(const char* ubi_device, const mtd_partition& row);

  /// Starts a tool that reads its standard input from feed(). Result: true, or false after an error.
  bool start_tool(const command_line& line);
  /// Writes all of the data to the tool. Result: true, or false after an error.
  bool feed(const void* data, size_t size);
  /// Ends the tool's input and waits for it. Its exit status is not looked at: tools have long complained
  /// about images that are good.
  void finish_tool();

  struct stream_texts {
    const char* writer;                // begins the end message
    const char* content = "firmware";  // what could not be read
  };
  /// Feeds the tool with `header` (256 bytes, unless null) and `length` bytes received from `fd`, and ends
  /// its input. `*checksum` (unless null) gets the image checksum without the header. Result: true, or false
  /// after an error. After a time-out or a failed write the tool's input stays open until the frame ends.
  bool stream_to_tool(int fd, const uint8_t* header, uint32_t length, uint64_t* checksum, stream_texts texts);

 private:
  bool give_back();
  bool write_all(const void* data, size_t size);

  const char* ubi_dev_name_;
  on_exit exit_;
  bool attached_;
  std::optional<command_pipe> tool_;
  std::optional<sigpipe_ignored> survive_tool_;
};
