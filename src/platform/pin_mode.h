// Which function the processor pins that have two serve: their peripheral (I2C, UART) or plain GPIO.
#pragma once

/// Each asks the control device (platform/control_requests.h) to switch one pin: mode 0 to its peripheral, 1
/// (as any other value) to GPIO. Result: 1, or 0 after an error.
int ctrl_i2cscl_mode(int mode);
int ctrl_i2csda_mode(int mode);
int ctrl_tx1_mode(int mode);
int ctrl_rx1_mode(int mode);
int ctrl_rts1_mode(int mode);
int ctrl_cts1_mode(int mode);
int ctrl_tx2_mode(int mode);
int ctrl_rx2_mode(int mode);
int ctrl_rts2_mode(int mode);
int ctrl_cts2_mode(int mode);
