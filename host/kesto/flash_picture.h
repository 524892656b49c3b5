// A picture of a device's flash in SVG: partitions and volumes to scale, what is in each, the bank that
// boots.
#pragma once

#include <string>

#include "device/device_state.h"

/// Result: the picture as a document of its own. Its colours suit light and dark backgrounds. Partitions
/// whose size is not known stand in a list below.
std::string flash_picture(const device_state& state);
