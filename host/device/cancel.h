// Ctrl-C on this computer: noted once, seen by every thread that waits for a device.
#pragma once

/// From now on SIGINT and SIGTERM are noted instead of ending the program, the first time; the second time
/// they end it at once. Called once, before threads are started.
void cancel_take_signals();

/// Result: a descriptor that becomes readable, and stays so, once a signal was noted.
int cancel_descriptor();

/// Result: true once a signal was noted.
bool cancel_requested();
