// The signals of the tk20 board, in the order of its schematics, to be checked against them row by row.
#include "platform/mode.h"
#include "platform/signal.h"

namespace {

constexpr gpiolib_directions in = gpiolib_direction_in;
constexpr gpiolib_directions out = gpiolib_direction_out;
constexpr gpiolib_resistors up = gpiolib_resistor_up;
constexpr gpiolib_resistors none = gpiolib_resistor_none;
constexpr gpiolib_states undriven = gpiolib_state_none;
constexpr gpiolib_states low = gpiolib_state_0;
constexpr gpiolib_states high = gpiolib_state_1;
constexpr opmode_ios always = opmode_io_none;
constexpr opmode_ios dio2x1r = opmode_io_dio2x1r;

}  // namespace

// clang-format off
constexpr gpiolib_signal gpiolib_tk20[gpiolib_tk20_size] = {
  // no name                   description                source      connector cpu_pin dir  pull  default   flag_a io_mode  pin_mode partner button reader
  { 37, "CP9",                 "SW1 for WPS",             "TK-10",    "J2-42",  "PA5",  in,  up,   undriven, 0,     always,  nullptr, -1,     1,     nullptr},
  { 64, "EXT_IN1",             "External Input 1",        "TK-10",    "J2-39",  "PB0",  in,  up,   undriven, 0,     dio2x1r, nullptr, -1,     0,     nullptr},
  { 65, "BARREL_UNDER_VOLT",   "Barrel under-voltage",    "TK-10",    "J2-43",  "PB1",  in,  up,   undriven, 0,     always,  nullptr, -1,     0,     nullptr},
  { 66, "TERMINAL_UNDER_VOLT", "Terminal under-voltage",  "TK-10",    "J2-45",  "PB2",  in,  up,   undriven, 0,     always,  nullptr, -1,     0,     nullptr},
  { 67, "EXT_IN2",             "External Input 2",        "TK-10",    "J2-41",  "PB3",  in,  up,   undriven, 0,     dio2x1r, nullptr, -1,     0,     nullptr},
  { 72, "CP6",                 "Strap 1",                 "TK-10",    "J2-27",  "PB8",  in,  up,   undriven, 0,     always,  nullptr, -1,     0,     nullptr},
  { 73, "CP5",                 "Strap 0",                 "TK-10",    "J2-32",  "PB9",  in,  up,   undriven, 0,     always,  nullptr, -1,     0,     nullptr},
  { 74, "FAULT_LED",           "Fault LED",               "TK-10",    "J2-37",  "PB10", out, up,   high,     0,     always,  nullptr, -1,     0,     nullptr},
  { 77, "DISABLE_SPI_CS",      "Disable spi flash",       "TK-10",    "J2-29",  "PB13", out, up,   low,      0,     always,  nullptr, -1,     0,     nullptr},
  { 80, "NRSTTODFLT",          "Reset to defaults",       "TK-10",    "J2-4",   "PB16", in,  up,   undriven, 0,     always,  nullptr, -1,     1,     nullptr},
  { 86, "DTR2_232",            "Line 2 DTR",              "TK-10",    "J2-18",  "PB22", out, up,   high,     0,     always,  nullptr, -1,     0,     nullptr},
  { 87, "DCD1_232",            "Line 1 DSR/DCD",          "TK-10",    "J2-16",  "PB23", in,  up,   undriven, 0,     always,  nullptr, -1,     0,     nullptr},
  { 88, "DTR1_232",            "Line 1 DTR",              "TK-10",    "J2-14",  "PB24", out, up,   high,     0,     always,  nullptr, -1,     0,     nullptr},
  { 89, "DCD2_232",            "Line 2 DSR/DCD",          "TK-10",    "J2-20",  "PB25", in,  up,   undriven, 0,     always,  nullptr, -1,     0,     nullptr},
  { 97, "CP7",                 "Temperature Event",       "TK-10",    "J2-44",  "PC1",  in,  up,   undriven, 0,     always,  nullptr, -1,     0,     nullptr},
  {128, "SEL_RS232_2",         "Line 2 rs232 select",     "I2C-0x69", "P0",     "",     out, up,   high,     0,     always,  nullptr, -1,     0,     nullptr},
  {129, "4W_B2",               "Line 2 4-wire select",    "I2C-0x69", "P1",     "",     out, up,   high,     0,     always,  nullptr, -1,     0,     nullptr},
  {130, "2W_B2",               "Line 2 2-wire select",    "I2C-0x69", "P2",     "",     out, up,   high,     0,     always,  nullptr, -1,     0,     nullptr},
  {132, "RX_TE2",              "Line 2 Rx Termination",   "I2C-0x69", "P4",     "",     out, none, low,      0,     always,  nullptr, -1,     0,     nullptr},
  {133, "TX_2W_TE2",           "Line 2 Tx Termination",   "I2C-0x69", "P5",     "",     out, none, low,      0,     always,  nullptr, -1,     0,     nullptr},
  {134, "NHOSTA_OC",           "USB Host A over-current", "I2C-0x69", "P6",     "",     in,  none, undriven, 0,     always,  nullptr, -1,     0,     nullptr},
  {135, "NHOSTB_OC",           "USB Host B over-current", "I2C-0x69", "P7",     "",     in,  none, undriven, 0,     always,  nullptr, -1,     0,     nullptr},
  {136, "SEL_RS232_1",         "Line 1 rs232 select",     "I2C-0x59", "O8",     "",     out, none, high,     0,     always,  nullptr, -1,     0,     nullptr},
  {137, "4W_B1",               "Line 1 4-wire select",    "I2C-0x59", "O9",     "",     out, none, high,     0,     always,  nullptr, -1,     0,     nullptr},
  {138, "2W_B1",               "Line 1 2-wire select",    "I2C-0x59", "O10",    "",     out, none, high,     0,     always,  nullptr, -1,     0,     nullptr},
  {139, "EN_EXTWAKE",          "EXT_IN1 wake cpu enable", "I2C-0x59", "O11",    "",     out, none, high,     0,     dio2x1r, nullptr, -1,     0,     nullptr},
  {140, "RX_TE1",              "Line 1 Rx Termination",   "I2C-0x59", "O12",    "",     out, none, low,      0,     always,  nullptr, -1,     0,     nullptr},
  {141, "TX_2W_TE1",           "Line 1 Tx Termination",   "I2C-0x59", "O13",    "",     out, none, low,      0,     always,  nullptr, -1,     0,     nullptr},
  {142, "HOSTB_EN",            "USB Host B enable",       "I2C-0x59", "O14",    "",     out, none, low,      1,     always,  nullptr, -1,     0,     nullptr},
  {143, "HOSTA_EN",            "USB Host A enable",       "I2C-0x59", "O15",    "",     out, none, low,      1,     always,  nullptr, -1,     0,     nullptr},
  {144, "HD_FD",               "Ethernet duplex LED",     "I2C-0x68", "P0",     "",     out, none, low,      0,     always,  nullptr, -1,     0,     nullptr},
  {147, "ULED1",               "USB Host A LED",          "I2C-0x68", "P3",     "",     out, none, low,      0,     always,  nullptr, -1,     0,     nullptr},
  {148, "ULED2",               "USB Host B LED",          "I2C-0x68", "P4",     "",     out, none, low,      0,     always,  nullptr, -1,     0,     nullptr},
  {149, "XLED1",               "Extra LED 1",             "I2C-0x68", "P5",     "",     out, none, low,      0,     always,  nullptr, -1,     0,     nullptr},
  {150, "XLED2",               "Extra LED 2",             "I2C-0x68", "P6",     "",     out, none, low,      0,     always,  nullptr, -1,     0,     nullptr},
  {151, "RELAY",               "Relay control",           "I2C-0x68", "P7",     "",     out, none, low,      0,     dio2x1r, nullptr, -1,     0,     nullptr},
  {152, "SIGPWR_LED7",         "WLAN RSSI LED 7",         "I2C-0x58", "O8",     "",     out, none, low,      0,     always,  nullptr, -1,     0,     nullptr},
  {153, "SIGPWR_LED6",         "WLAN RSSI LED 6",         "I2C-0x58", "O9",     "",     out, none, low,      0,     always,  nullptr, -1,     0,     nullptr},
  {154, "SIGPWR_LED5",         "WLAN RSSI LED 5",         "I2C-0x58", "O10",    "",     out, none, low,      0,     always,  nullptr, -1,     0,     nullptr},
  {155, "SIGPWR_LED4",         "WLAN RSSI LED 4",         "I2C-0x58", "O11",    "",     out, none, low,      0,     always,  nullptr, -1,     0,     nullptr},
  {156, "SIGPWR_LED3",         "WLAN RSSI LED 3",         "I2C-0x58", "O12",    "",     out, none, low,      0,     always,  nullptr, -1,     0,     nullptr},
  {157, "SIGPWR_LED2",         "WLAN RSSI LED 2",         "I2C-0x58", "O13",    "",     out, none, low,      0,     always,  nullptr, -1,     0,     nullptr},
  {158, "SIGPWR_LED1",         "WLAN RSSI LED 1",         "I2C-0x58", "O14",    "",     out, none, low,      0,     always,  nullptr, -1,     0,     nullptr},
};
// clang-format on
