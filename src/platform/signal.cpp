// The names of the values, as the listing and the kernel have them.
#include "platform/signal.h"

const char* const gpiolib_direction_names[gpiolib_direction_count] = {"in", "out", "-"};
const char* const gpiolib_resistor_names[gpiolib_resistor_count] = {"up", "down", "none"};
const char* const gpiolib_state_names[gpiolib_state_count] = {"0", "1", "-"};
