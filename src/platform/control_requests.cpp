// Path: /dev/ctrl.
#include "platform/control_requests.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

#include "util/log.h"
#include "util/unique_fd.h"

bool ctrl_request(unsigned long request, unsigned long argument, const char* what) {
  const unique_fd device(open(ctrl_node, O_RDWR | O_CLOEXEC));
  if (!device) {
    log_printf(level_error, "open(%s) error=%s\n", ctrl_node, strerror(errno));
    return false;
  }
  if (ioctl(device.get(), request, argument) < 0) {
    log_printf(level_error, "%s error=%s\n", what, strerror(errno));
    return false;
  }
  return true;
}
