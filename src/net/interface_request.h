// A question to the kernel about one network interface, by ioctl on a socket (netdevice(7), linux/sockios.h).
#pragma once

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstring>

#include "util/unique_fd.h"

class interface_request {
 public:
  explicit interface_request(const char* if_name) : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    strncpy(record.ifr_name, if_name, sizeof record.ifr_name);
  }

  /// False when there is no socket; errno tells why.
  explicit operator bool() const { return static_cast<bool>(socket_); }

  /// Makes the request with `record`, which the kernel completes. Result: true on success.
  bool make(unsigned long request) { return ioctl(socket_.get(), request, &record) >= 0; }

  ifreq record = {};

 private:
  unique_fd socket_;
};
