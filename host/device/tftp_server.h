// Serves one file by TFTP while the object lives: RFC 1350, with the options blksize (RFC 2348) and tsize
// (RFC 2349). Read-only; any number of devices at once.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include "util/unique_fd.h"

class tftp_server {
 public:
  /// Serves the file at `path` under the name `name` on `address`, UDP port `port`, from a thread of its own.
  /// Throws device_failure (status_server) when the file or the port cannot be opened; a missing privilege is
  /// named.
  tftp_server(const std::string& path, std::string name, const std::string& address, uint16_t port);
  ~tftp_server();
  tftp_server(const tftp_server&) = delete;
  tftp_server& operator=(const tftp_server&) = delete;

  /// Bytes handed out so far, over all transfers.
  uint64_t sent() const { return sent_; }

  static constexpr uint16_t well_known_port = 69;

 private:
  struct client_transfer;

  void serve();
  void take_request();
  std::string_view block_at(client_transfer& transfer, uint64_t offset);
  void send_next(client_transfer& transfer, bool again);
  bool take_acknowledgement(client_transfer& transfer);

  std::string name_;
  unique_fd file_;
  uint64_t size_ = 0;
  unique_fd socket_;
  unique_fd stop_;
  std::atomic<uint64_t> sent_ = 0;
  struct state;
  std::unique_ptr<state> state_;
  std::thread thread_;
};
