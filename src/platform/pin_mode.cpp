// Request: VEXO_CTRL_IOCS_PIN_MODE of the control device.
#include "platform/pin_mode.h"

#include "platform/control_requests.h"
#include "util/log.h"
#include "util/text_buffer.h"

namespace {

enum class pin_kind { i2c, uart, uart_transmit };

struct processor_pin {
  uint32_t number;
  const char* name;
  pin_kind kind;
};

constexpr processor_pin i2csda = {55, "I2CSDA", pin_kind::i2c};
constexpr processor_pin i2cscl = {56, "I2CSCL", pin_kind::i2c};
constexpr processor_pin tx1 = {68, "TX1", pin_kind::uart_transmit};
constexpr processor_pin rx1 = {69, "RX1", pin_kind::uart};
constexpr processor_pin tx2 = {70, "TX2", pin_kind::uart_transmit};
constexpr processor_pin rx2 = {71, "RX2", pin_kind::uart};
constexpr processor_pin rts1 = {90, "RTS1", pin_kind::uart};
constexpr processor_pin cts1 = {91, "CTS1", pin_kind::uart};
constexpr processor_pin rts2 = {92, "RTS2", pin_kind::uart};
constexpr processor_pin cts2 = {93, "CTS2", pin_kind::uart};

ctrl_pin_request make_request(const processor_pin& pin, bool peripheral) {
  const uint8_t on_for_peripheral = peripheral ? 1 : 0;
  ctrl_pin_request request = {};
  request.pin = pin.number;
  switch (pin.kind) {
    case pin_kind::i2c:
      // The I2C bus of the board is driven by software: to the driver its pins are never a peripheral's.
      request.flag = 1;
      for (uint8_t& flag : request.bus_flags) {
        flag = on_for_peripheral;
      }
      break;
    case pin_kind::uart:
      request.peripheral = on_for_peripheral;
      request.flag = peripheral ? 0 : 1;
      break;
    case pin_kind::uart_transmit:
      // A transmit pin keeps its flag in either mode.
      request.peripheral = on_for_peripheral;
      request.flag = 1;
      break;
  }
  return request;
}

// What errors call the request.
text_buffer<48> request_name(const processor_pin& pin) {
  text_buffer<48> name;
  if (pin.kind == pin_kind::i2c) {
    name.format("pin %s ioctl(VEXO_CTRL_IOCS_PIN_MODE)", pin.name);
  } else {
    name.format("pin %u ioctl(VEXO_CTRL_IOCS_PIN_MODE)", pin.number);
  }
  return name;
}

bool set_mode(const processor_pin& pin, int mode) {
  const char* peripheral = pin.kind == pin_kind::i2c ? "i2c-gpio" : "uart";
  log_printf(level_verbose, "Setting %s pin to %s mode\n", pin.name, mode == 0 ? peripheral : "gpio");
  ctrl_pin_request request = make_request(pin, mode == 0);
  return ctrl_request(VEXO_CTRL_IOCS_PIN_MODE, reinterpret_cast<unsigned long>(&request),
                      request_name(pin).text());
}

}  // namespace

bool ctrl_i2cscl_mode(int mode) {
  return set_mode(i2cscl, mode);
}

bool ctrl_i2csda_mode(int mode) {
  return set_mode(i2csda, mode);
}

bool ctrl_tx1_mode(int mode) {
  return set_mode(tx1, mode);
}

bool ctrl_rx1_mode(int mode) {
  return set_mode(rx1, mode);
}

bool ctrl_rts1_mode(int mode) {
  return set_mode(rts1, mode);
}

bool ctrl_cts1_mode(int mode) {
  return set_mode(cts1, mode);
}

bool ctrl_tx2_mode(int mode) {
  return set_mode(tx2, mode);
}

bool ctrl_rx2_mode(int mode) {
  return set_mode(rx2, mode);
}

bool ctrl_rts2_mode(int mode) {
  return set_mode(rts2, mode);
}

bool ctrl_cts2_mode(int mode) {
  return set_mode(cts2, mode);
}
