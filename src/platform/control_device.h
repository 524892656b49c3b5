// Power rails and reset lines of the board, switched through its control device. No command uses them; they
// are for programs that are built upon this library.
//
// Every operation opens the device, sends one request and closes it. It answers true, or false after an
// error. Where the comment says so, a request that the driver refused is logged and counts as done.
#pragma once

#include <cstdint>

/// Whether the hardware resets on the user reset input. A refused request counts as done.
bool ctrl_urst_disable();
bool ctrl_urst_enable();
/// Stores whether the reset input is active (0 = not). A refused request counts as done and leaves `*out` as
/// it was.
bool ctrl_urst_status(uint32_t* out);

/// Drives the external reset line.
bool ctrl_erst_assert();

/// Supply of the ethernet transceiver.
bool ctrl_ethphy_powerdown();
bool ctrl_ethphy_powerup();
/// Supply of the WLAN module.
bool ctrl_wlan_powerdown();
bool ctrl_wlan_powerup();

/// Sends the status request with `argument` as it stands, and reports under that request's name: the driver
/// has no other for it. A refused request counts as done.
bool ctrl_sleep(unsigned long argument);

/// Watches the reset input for a push, looking every 100 ms until `ms` milliseconds have passed (at least
/// once). Meanwhile the input does not reset the board. Result: true one second after it was pushed; false
/// when it was not, or when the device cannot be opened.
bool ctrl_test_nresetin(int ms);
