// The small commands that belong to the shell itself.
#pragma once

/// When this program was built, as "May  5 2016" and "09:02:28".
extern const char* const version_date;
extern const char* const version_time;

/// Prints name, version and build date of the program.
void print_banner();

/// "version": the banner line.
void cmd_version();
/// "quit": nothing. The shell is all there is to return to.
void cmd_quit();
/// "verbose": sets the verbosity, if given, and shows it.
void cmd_verbose();
/// "affirm": switches the questions before destructive commands, if told to, and shows their state.
void cmd_affirm();
/// "reset": reboots the device.
void cmd_reset();
/// "show system": processes and load.
void cmd_show_system();
/// "show klog": the kernel's messages.
void cmd_show_klog();
