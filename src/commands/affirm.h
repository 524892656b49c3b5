// The question that destructive commands ask before they act, when asking is on.
#pragma once

#include <cstdint>

/// 1 = ask. 0 at every start.
extern uint8_t affirm_on;

/// Result: 1 to go ahead (at once when asking is off), 0 when the answer's first byte was not y or Y; then
/// "<aborted>" was printed. Reads the console up to the end of the line; the end of input ends the answer.
int _affirmation();
