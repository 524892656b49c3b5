// The interface of the board's control device, /dev/ctrl, as its kernel driver has it, and how a request is
// sent.
#pragma once

#include <sys/ioctl.h>

#include <cstddef>
#include <cstdint>

/// What selects the use of one processor pin. What the flags mean is the driver's; each pin has its own
/// (pin_mode.cpp).
struct ctrl_pin_request {
  uint32_t pin;         // number
  uint32_t peripheral;  // 0 or 1
  uint8_t flag;         // 0 or 1
  uint8_t zero[2];
  uint8_t bus_flags[3];  // 0 or 1 each; set for the I2C pins only
  uint8_t padding[6];
};
static_assert(sizeof(ctrl_pin_request) == 20);
static_assert(offsetof(ctrl_pin_request, bus_flags) == 11 && offsetof(ctrl_pin_request, padding) == 14);

/// Requests that carry no data take the argument 0. "urst" is the user reset input, "erst" the external reset
/// output.
constexpr unsigned long ctrl_request_urst_disable = 0x4C01;
constexpr unsigned long ctrl_request_urst_enable = 0x4C02;
constexpr unsigned long ctrl_request_urst_status = 0x80044C03;  // stores 32 bits
constexpr unsigned long ctrl_request_erst_assert = 0x4C04;
constexpr unsigned long ctrl_request_eth_powerdown = 0x4C05;
constexpr unsigned long ctrl_request_eth_powerup = 0x4C06;
constexpr unsigned long ctrl_request_wl_powerdown = 0x4C07;
constexpr unsigned long ctrl_request_wl_powerup = 0x4C08;
/// Takes a ctrl_pin_request. It has the driver's own name, which messages quote.
constexpr unsigned long VEXO_CTRL_IOCS_PIN_MODE = 0x40144C0A;  // NOLINT(readability-identifier-naming)

static_assert(ctrl_request_urst_disable == _IO('L', 1) && ctrl_request_wl_powerup == _IO('L', 8));
static_assert(ctrl_request_urst_status == _IOR('L', 3, uint32_t));
static_assert(VEXO_CTRL_IOCS_PIN_MODE == _IOW('L', 10, ctrl_pin_request));

/// The node.
constexpr const char* ctrl_node = "/dev/ctrl";

/// Opens the device, sends one request and closes it. Result: true, or false after an error; that of a
/// refused request begins with `what`.
bool ctrl_request(unsigned long request, unsigned long argument, const char* what);
