// What a discrete signal of a board is, and the table of each board that has one. docs/gpio.md explains the
// columns.
#pragma once

#include <cstdint>

#include "platform/mode.h"

enum gpiolib_directions : uint32_t {
  gpiolib_direction_in,
  gpiolib_direction_out,
  gpiolib_direction_none,
  gpiolib_direction_count,
};

enum gpiolib_resistors : uint32_t {
  gpiolib_resistor_up,
  gpiolib_resistor_down,
  gpiolib_resistor_none,
  gpiolib_resistor_count,
};

enum gpiolib_states : uint32_t {
  gpiolib_state_0,
  gpiolib_state_1,
  gpiolib_state_none,
  gpiolib_state_count,
};

/// Printable names, indexed by value.
extern const char* const gpiolib_direction_names[gpiolib_direction_count];
extern const char* const gpiolib_resistor_names[gpiolib_resistor_count];
extern const char* const gpiolib_state_names[gpiolib_state_count];

/// One row of a signal table. Fifteen words of 32 bits on the device.
struct gpiolib_signal {
  int32_t gpio;             // number in the kernel; -1 = no GPIO
  const char* name;         // unique within the table
  const char* description;  // for the listing
  const char* source;       // "TK-10", the module's own pins, or an I2C port expander
  const char* connector;    // pin of the module's connector, or port of the expander
  const char* cpu_pin;      // "" for signals of an expander
  gpiolib_directions direction;
  gpiolib_resistors pull;
  gpiolib_states default_state;  // an output is driven to it at initialisation
  uint32_t flag_a;               // in the boards' documents; nothing reads it
  opmode_ios io_mode;            // opmode_io_none = always there, else only in this I/O mode
  bool (*pin_mode)(int);         // switches the pin to GPIO (1) or its peripheral (0); null for plain pins
  int32_t partner;               // number of the signal that the test fixture wires to this one; -1 for none
  uint32_t button;               // 1 = push button or switch
  bool (*reader)(int ms);        // reads a signal without a number within a time limit; null for all others
};
static_assert(sizeof(void*) != 4 || sizeof(gpiolib_signal) == 60);

constexpr int32_t gpiolib_tk20_size = 43;
extern const gpiolib_signal gpiolib_tk20[gpiolib_tk20_size];

constexpr int32_t gpiolib_tk10_mfg_size = 25;
extern const gpiolib_signal gpiolib_tk10_mfg[gpiolib_tk10_mfg_size];
