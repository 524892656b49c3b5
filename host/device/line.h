// The line to a device: bytes in both directions, whatever carries them.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

#include "device/port_name.h"
#include "device/telnet.h"
#include "util/unique_fd.h"

using milliseconds = std::chrono::milliseconds;
using clock_type = std::chrono::steady_clock;

struct line_settings {
  uint32_t speed = 115200;
  bool hardware_flow = true;  // RTS/CTS
};

class line {
 public:
  /// Opens a port and sets it up: 8 data bits, no parity, one stop bit. A terminal device is taken for us
  /// alone. Throws device_failure (status_port) with the reason, a user of the port by name.
  line(const port_name& name, const line_settings& settings);
  ~line();
  line(const line&) = delete;
  line& operator=(const line&) = delete;

  const std::string& name() const { return name_.text; }

  struct readiness {
    bool readable = false;
    bool writable = false;
  };
  /// Waits until bytes have come or can be sent, or `limit` has passed. Throws device_failure:
  /// status_interrupted once Ctrl-C was pressed, unless shielded; status_line_lost when the line is gone.
  readiness wait(bool for_reading, bool for_writing, milliseconds limit);
  /// Result: what has come by now, or nothing. Throws as wait() does.
  std::string take();
  /// Result: what comes within `limit`, as soon as something comes; nothing at the time-out.
  std::string read(milliseconds limit);
  /// Result: how many of `data` were handed on without waiting.
  size_t write_some(std::string_view data);
  /// Sends all of it. Throws status_line_lost when nothing is taken for `limit`.
  void write(std::string_view data, milliseconds limit = std::chrono::seconds(30));
  /// Forgets what was handed on and is still in this computer.
  void discard_unsent();

  /// While true, Ctrl-C does not end a wait: the line is being brought to rest.
  void shield(bool on) { shielded_ = on; }

 private:
  void open_serial(const line_settings& settings);
  void open_pseudo();
  void open_network();
  void open_unix();
  void agree(const line_settings& settings);
  void send_now(std::string_view raw, milliseconds limit);
  [[noreturn]] void lost(const std::string& why) const;

  port_name name_;
  unique_fd fd_;
  std::unique_ptr<telnet_port> telnet_;
  std::string unsent_;  // of an encoded piece that was not taken whole, and answers of the protocol
  std::string inbox_;   // data that came while something had to be sent
  bool is_terminal_ = false;
  bool shielded_ = false;
};
