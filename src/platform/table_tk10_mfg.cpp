// The signals of the tk10 module on the manufacturing test fixture, which wires them in pairs. In the order
// of the fixture's schematics, to be checked against them row by row.
#include "platform/control_device.h"
#include "platform/mode.h"
#include "platform/pin_mode.h"
#include "platform/signal.h"

namespace {

constexpr gpiolib_directions in = gpiolib_direction_in;
constexpr gpiolib_resistors up = gpiolib_resistor_up;
constexpr gpiolib_resistors none = gpiolib_resistor_none;
constexpr gpiolib_states undriven = gpiolib_state_none;
constexpr opmode_ios always = opmode_io_none;

}  // namespace

// clang-format off
constexpr gpiolib_signal gpiolib_tk10_mfg[gpiolib_tk10_mfg_size] = {
  // no name              description             source   connector cpu_pin dir pull  default   flag_a io_mode pin_mode          partner button reader
  { -1, "NRESETIN",       "Test fixture SW2",     "TK-10", "J1-2",   "NRST", in, none, undriven, 0,     always, nullptr,          -1,     1,     ctrl_test_nresetin},
  { 36, "CP8",            "Test fixture JP13.16", "TK-10", "J1-38",  "PA4",  in, up,   undriven, 0,     always, nullptr,          97,     0,     nullptr},
  { 37, "CP9",            "Test fixture JP13.18", "TK-10", "J1-42",  "PA5",  in, up,   undriven, 0,     always, nullptr,          74,     0,     nullptr},
  { 55, "I2CSDA",         "Test fixture JP1.3",   "TK-10", "J1-33",  "PA23", in, up,   undriven, 0,     always, ctrl_i2csda_mode, 66,     0,     nullptr},
  { 56, "I2CSCL",         "Test fixture JP1.2",   "TK-10", "J1-31",  "PA24", in, up,   undriven, 0,     always, ctrl_i2cscl_mode, 67,     0,     nullptr},
  { 64, "SPI1_MISO",      "Test fixture JP3.3",   "TK-10", "J1-39",  "PB0",  in, up,   undriven, 0,     always, nullptr,          65,     0,     nullptr},
  { 65, "SPI1_MOSI",      "Test fixture JP3.5",   "TK-10", "J1-43",  "PB1",  in, up,   undriven, 0,     always, nullptr,          64,     0,     nullptr},
  { 66, "SPI1_CLK",       "Test fixture JP3.6",   "TK-10", "J1-45",  "PB2",  in, up,   undriven, 0,     always, nullptr,          55,     0,     nullptr},
  { 67, "NSPI1_CS",       "Test fixture JP3.4",   "TK-10", "J1-41",  "PB3",  in, up,   undriven, 0,     always, nullptr,          56,     0,     nullptr},
  { 70, "TX2",            "Test fixture JP11.2",  "TK-10", "J1-24",  "PB6",  in, up,   undriven, 0,     always, ctrl_tx2_mode,    71,     0,     nullptr},
  { 71, "RX2",            "Test fixture JP11.4",  "TK-10", "J1-28",  "PB7",  in, up,   undriven, 0,     always, ctrl_rx2_mode,    70,     0,     nullptr},
  { 72, "CP6",            "Test fixture JP13.12", "TK-10", "J1-27",  "PB8",  in, up,   undriven, 0,     always, nullptr,          86,     0,     nullptr},
  { 73, "CP5",            "Test fixture JP13.10", "TK-10", "J1-32",  "PB9",  in, up,   undriven, 0,     always, nullptr,          87,     0,     nullptr},
  { 74, "NSPI1_IRQ",      "Test fixture JP3.2",   "TK-10", "J1-37",  "PB10", in, up,   undriven, 0,     always, nullptr,          37,     0,     nullptr},
  { 77, "DISABLE_SPI_CS", "Test fixture SW1",     "TK-10", "J1-29",  "PB13", in, up,   undriven, 1,     always, nullptr,          -1,     1,     nullptr},
  { 80, "NRSTTODFLT",     "Test fixture SW3",     "TK-10", "J1-4",   "PB16", in, up,   undriven, 0,     always, nullptr,          -1,     1,     nullptr},
  { 86, "CP3",            "Test fixture JP13.6",  "TK-10", "J1-18",  "PB22", in, up,   undriven, 0,     always, nullptr,          72,     0,     nullptr},
  { 87, "CP2",            "Test fixture JP13.4",  "TK-10", "J1-16",  "PB23", in, up,   undriven, 0,     always, nullptr,          73,     0,     nullptr},
  { 88, "CP1",            "Test fixture JP13.2",  "TK-10", "J1-14",  "PB24", in, up,   undriven, 0,     always, nullptr,          89,     0,     nullptr},
  { 89, "CP4",            "Test fixture JP13.8",  "TK-10", "J1-20",  "PB25", in, up,   undriven, 0,     always, nullptr,          88,     0,     nullptr},
  { 90, "RTS1",           "Test fixture JP10.6",  "TK-10", "J1-8",   "PB26", in, up,   undriven, 0,     always, ctrl_rts1_mode,   91,     0,     nullptr},
  { 91, "CTS1",           "Test fixture JP10.8",  "TK-10", "J1-12",  "PB27", in, up,   undriven, 0,     always, ctrl_cts1_mode,   90,     0,     nullptr},
  { 92, "RTS2",           "Test fixture JP11.6",  "TK-10", "J1-26",  "PB28", in, up,   undriven, 0,     always, ctrl_rts2_mode,   93,     0,     nullptr},
  { 93, "CTS2",           "Test fixture JP11.8",  "TK-10", "J1-30",  "PB29", in, up,   undriven, 0,     always, ctrl_cts2_mode,   92,     0,     nullptr},
  { 97, "CP7",            "Test fixture JP13.14", "TK-10", "J1-44",  "PC1",  in, up,   undriven, 0,     always, nullptr,          36,     0,     nullptr},
};
// clang-format on
