// Commands of the operating mode.
#pragma once

/// "set opmode board|io|serports": overrides what was found, until the program restarts.
void cmd_set_opmode_board();
void cmd_set_opmode_io();
void cmd_set_opmode_serports();
/// "show opmode".
void cmd_show_opmode();
