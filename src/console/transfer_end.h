// The end of a transfer over the line that the shell sits on: what its sender goes on sending is not run as
// commands.
#pragma once

#include "tty/port.h"

/// Result: true when bytes follow a transfer over the open `port` without the pause that a person makes: the
/// sender has more than the transfer took, as behind an image whose header ends it too early.
bool tty_sender_goes_on(const tty_port& port);

/// Makes the console's line the operator's again after a transfer over `port`, which is closed. To be called
/// before the command reports, however the transfer ended.
///
/// A transfer that is `complete` has taken all that its sender had: whatever follows in the line was typed,
/// and stays. After any other on the console's own port the sender may still be sending: what arrives is
/// thrown away until the line has been silent for a second. When that takes longer than three seconds a note
/// says so, and that Ctrl-C, pressed three times, ends the wait.
void tty_end_transfer(const tty_port& port, bool complete);
