// What the processor pins with two functions serve: their peripheral (I2C, UART) or plain GPIO.
#pragma once

/// Each has the control device switch one pin: mode 0 to its peripheral, any other to GPIO. Result: true, or
/// false after an error.
bool ctrl_i2cscl_mode(int mode);
bool ctrl_i2csda_mode(int mode);
bool ctrl_tx1_mode(int mode);
bool ctrl_rx1_mode(int mode);
bool ctrl_rts1_mode(int mode);
bool ctrl_cts1_mode(int mode);
bool ctrl_tx2_mode(int mode);
bool ctrl_rx2_mode(int mode);
bool ctrl_rts2_mode(int mode);
bool ctrl_cts2_mode(int mode);
