// Power rails and reset lines of the board, switched through its control device.
//
// Every operation opens the device, sends one request and closes it. Result: 1, or 0 after an error; an
// operation whose comment says so also counts a refused request, which is logged, as done.
#pragma once

#include <cstdint>

/// The user reset input: whether the hardware resets on it. Result: 1 whenever the device could be opened.
int ctrl_urst_disable();
int ctrl_urst_enable();
/// Stores whether the reset input is active (0 = not). Result: 1 whenever the device could be opened; a
/// refused request leaves `*out` as it was.
int ctrl_urst_status(uint32_t* out);

/// Drives the external reset line.
int ctrl_erst_assert();

/// Supply of the ethernet transceiver.
int ctrl_ethphy_powerdown();
int ctrl_ethphy_powerup();
/// Supply of the WLAN module.
int ctrl_wlan_powerdown();
int ctrl_wlan_powerup();

/// Sends the status request with `argument` as it stands, and reports under the status request's name: the
/// driver has no other for it. Result: 1 whenever the device could be opened.
int ctrl_sleep(unsigned long argument);

/// Watches the reset input for a push, looking every 100 ms until `ms` milliseconds have passed (at least
/// once). The input does not reset the board meanwhile. Result: 1 when it was pushed, one second after; 0
/// when not, or when the device cannot be opened.
int ctrl_test_nresetin(int ms);
