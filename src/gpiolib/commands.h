// Commands of the board's signals.
#pragma once

/// "gpiolib info": lists the signals, or one.
void cmd_gpiolib_info();
/// "gpiolib set": drives an output.
void cmd_gpiolib_set();
