// See mode.h.
#include "opmode/mode.h"

const char* const opmode_board_names[opmode_board_count] = {
    "unknown", "tk10_mfg", "tk10_eval", "tk20", "tk30", "tk40",
};

uint32_t g_opmode_board = opmode_board_tk10_eval;
