// The names of the values, and the mode itself.
#include "platform/mode.h"

const char* const opmode_board_names[opmode_board_count] = {
    "unknown", "tk10_mfg", "tk10_eval", "tk20", "tk30", "tk40",
};
const char* const opmode_io_names[opmode_io_count] = {"none", "dio2x1r"};

opmode_boards g_opmode_board = opmode_board_default;
opmode_ios g_opmode_io = opmode_io_default;
uint32_t g_opmode_num_serports = opmode_num_serports_default;
