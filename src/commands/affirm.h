// The question that destructive commands ask before they act, when asking is on.
#pragma once

/// Whether it is asked. Off at every start.
extern bool affirm_on;

/// Result: true to go ahead (at once when asking is off); false when the answer's first byte was not y or Y,
/// after "<aborted>". Reads the console up to byte 10, the end of the answer; the end of input before that
/// is no answer.
bool _affirmation();
