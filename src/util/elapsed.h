// Time between two readings of the monotonic clock.
#pragma once

#include <ctime>

/// Result: whole milliseconds from `start` to `end`, truncated.
long timespec_elapsed_ms(const timespec& start, const timespec& end);
