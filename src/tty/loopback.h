// A data integrity test of a serial line: a counting pattern is sent and expected back.
#pragma once

#include <cstdint>

#include "tty/port.h"

/// Sends `size` bytes (positive) out of `local` and expects them back, through a loopback plug or, with
/// `remote` (may be null), through a second port that this echoes itself. Both ports are opened raw for the
/// test, and every record whose descriptor is not negative is left closed. Ends 2 seconds after the last
/// byte, also when a line takes no more. Result: true when the first `size` bytes came back unchanged;
/// surplus bytes are an error message but no failure. False otherwise, after an error.
bool tty_test_loopback(int32_t size, tty_port* local, tty_port* remote);
