// Drives five GPIO signals per port, then makes the request TIOCSRS485
// (Documentation/driver-api/serial/serial-rs485.rst of the kernel).
#include "console/line_driver.h"

#include <linux/serial.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <iterator>

#include "platform/gpiolib.h"
#include "platform/mode.h"
#include "util/log.h"

namespace {

static_assert(sizeof(serial_rs485) == 32);

constexpr unsigned signal_count = 5;

struct port_signals {
  int32_t port;
  const char* names[signal_count];
};

struct mode_levels {
  uint8_t unterminated[signal_count];
  uint8_t terminated[signal_count];
  uint32_t rs485_flags;  // without the termination flag
};

// clang-format off
constexpr port_signals ports[] = {
  {1, {"SEL_RS232_1", "4W_B1", "2W_B1", "TX_2W_TE1", "RX_TE1"}},
  {2, {"SEL_RS232_2", "4W_B2", "2W_B2", "TX_2W_TE2", "RX_TE2"}},
};

// Levels in the order of the signals, indexed by mode.
constexpr mode_levels modes[tty_mode_count] = {
  /* rs232 */ {{1, 1, 1, 0, 0}, {1, 1, 1, 0, 0}, 0},
  /* rs485 */ {{0, 1, 0, 0, 0}, {0, 1, 0, 1, 0}, SER_RS485_ENABLED | SER_RS485_RTS_ON_SEND},
  /* rs422 */ {{0, 0, 1, 0, 0}, {0, 0, 1, 0, 1}, SER_RS485_ENABLED | SER_RS485_RX_DURING_TX},
};
// clang-format on

// The signals of the port, in order. Result: false when one is missing.
bool find_signals(int32_t port, const gpiolib_signal* (&signals)[signal_count]) {
  for (const port_signals& row : ports) {
    if (row.port == port) {
      bool found = true;
      for (unsigned i = 0; i < signal_count; ++i) {
        signals[i] = gpiolib_lookup_num_or_name_string(row.names[i]);
        found = found && signals[i] != nullptr;
      }
      return found;
    }
  }
  return false;
}

bool is_terminated(const tty_port& port) {
  return port.mode != tty_mode_rs232 && port.termination;
}

// Asked for in rs232, too: that is what switches RS-485 off.
bool request_rs485(const tty_port& port) {
  serial_rs485 settings = {};
  settings.flags = modes[port.mode].rs485_flags;
  if (is_terminated(port)) {
    settings.flags |= SER_RS485_TERMINATE_BUS;
  }
  if (ioctl(STDIN_FILENO, TIOCSRS485, &settings) < 0) {
    log_printf(level_error, "ioctl(TIOCSRS485) on /dev/ttyS%d\n", port.port);
    return false;
  }
  return true;
}

}  // namespace

bool tty_configure_mode(const tty_port& port) {
  if (g_opmode_board != opmode_board_tk20 || port.port == 0) {
    return true;
  }
  log_printf(level_verbose, "%s: port=%d\n", __func__, port.port);
  const gpiolib_signal* signals[signal_count];
  if (!find_signals(port.port, signals)) {
    log_printf(level_error, "Unable to get gpiolib's for tty mode\n");
    return false;
  }
  const mode_levels& mode = modes[port.mode];
  const auto& levels = is_terminated(port) ? mode.terminated : mode.unterminated;
  for (unsigned i = 0; i < signal_count; ++i) {
    // A signal that fails has said so; the others still move.
    gpiolib_set_state(signals[i], levels[i] != 0 ? gpiolib_state_1 : gpiolib_state_0);
  }
  return request_rs485(port);
}
