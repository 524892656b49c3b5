// Path: /dev/ctrl. Requests: those of platform/control_requests.h.
#include "platform/control_device.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "platform/control_requests.h"
#include "util/elapsed.h"
#include "util/log.h"
#include "util/unique_fd.h"

namespace {

constexpr useconds_t look_interval_us = 100000;
constexpr unsigned release_seconds = 1;  // for the hand to leave the button before it resets again

// Switches a rail or drives a line; `what` names the request in an error.
bool switch_line(unsigned long request, const char* action, const char* what) {
  log_printf(level_verbose, "%s\n", action);
  return ctrl_request(request, 0, what);
}

// A request about the reset input, on behalf of `caller`.
bool request_urst(const char* caller, unsigned long request, unsigned long argument,
                  const char* request_name) {
  const unique_fd device(open(ctrl_node, O_RDWR | O_CLOEXEC));
  if (!device) {
    log_printf(level_error, "%s: open() error=%s\n", caller, strerror(errno));
    return false;
  }
  if (ioctl(device.get(), request, argument) < 0) {
    log_printf(level_error, "%s: ioctl(%s) error=%s\n", caller, request_name, strerror(errno));
  }
  return true;
}

// Result: true once the reset input is active, false when `ms` milliseconds pass before.
bool wait_for_push(int ms) {
  timespec start;
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &start);
  do {
    usleep(look_interval_us);
    uint32_t status = 0;
    if (!ctrl_urst_status(&status)) {
      return false;
    }
    if (status != 0) {
      return true;
    }
    clock_gettime(CLOCK_MONOTONIC, &now);
  } while (timespec_elapsed_ms(start, now) < ms);
  return false;
}

}  // namespace

bool ctrl_urst_disable() {
  return request_urst(__func__, ctrl_request_urst_disable, 0, "URST_DISABLE");
}

bool ctrl_urst_enable() {
  return request_urst(__func__, ctrl_request_urst_enable, 0, "URST_ENABLE");
}

bool ctrl_urst_status(uint32_t* out) {
  return request_urst(__func__, ctrl_request_urst_status, reinterpret_cast<unsigned long>(out),
                      "URST_STATUS");
}

bool ctrl_erst_assert() {
  return switch_line(ctrl_request_erst_assert, "Asserting external reset signal", "ioctl(ERST_ASSERT)");
}

bool ctrl_ethphy_powerdown() {
  return switch_line(ctrl_request_eth_powerdown, "Powering down 3V3_PHY rail", "ioctl(ETH_POWERDOWN)");
}

bool ctrl_ethphy_powerup() {
  return switch_line(ctrl_request_eth_powerup, "Powering up 3V3_PHY rail", "ioctl(ETH_POWERUP)");
}

bool ctrl_wlan_powerdown() {
  return switch_line(ctrl_request_wl_powerdown, "Powering down 3V3_WL rail", "ioctl(WL_POWERDOWN)");
}

bool ctrl_wlan_powerup() {
  return switch_line(ctrl_request_wl_powerup, "Powering up 3V3_WL rail", "ioctl(WL_POWERUP)");
}

bool ctrl_sleep(unsigned long argument) {
  return request_urst(__func__, ctrl_request_urst_status, argument, "URST_STATUS");
}

bool ctrl_test_nresetin(int ms) {
  log_printf(level_trace, "%s: ms=%i\n", __func__, ms);
  uint32_t status = 0;
  if (!ctrl_urst_status(&status) || !ctrl_urst_disable()) {
    return false;
  }
  const bool pushed = wait_for_push(ms);
  if (pushed) {
    sleep(release_seconds);
  }
  return ctrl_urst_enable() && pushed;
}
