// Commands that set and show the boot loader's environment.
#pragma once

void cmd_set_bootenv_bootbank();
void cmd_set_bootenv_bootcmd();
void cmd_set_bootenv_bootdelay();
void cmd_set_bootenv_silent();
void cmd_set_bootenv_defaults();
void cmd_show_bootenv();

/// Erases the boot environment partitions and lets the environment tool write its defaults into the first.
/// Result: 1, or 0 after an error; when an erase failed no defaults are written.
int helper_set_bootenv_defaults();
