// What machines read about a device. docs/kesto-json.md lists the keys, which stay as they are.
#pragma once

#include <nlohmann/json.hpp>

#include "device/device_state.h"

/// Result: the record of a device.
nlohmann::ordered_json device_state_json(const device_state& state);
