// The board that the shell runs on.
#pragma once

#include <cstdint>

enum opmode_boards : uint32_t {
  opmode_board_unknown,
  opmode_board_tk10_mfg,
  opmode_board_tk10_eval,
  opmode_board_tk20,
  opmode_board_tk30,
  opmode_board_tk40,
  opmode_board_count,
};

/// Names indexed by board.
extern const char* const opmode_board_names[opmode_board_count];
/// The board, tk10_eval unless something else was found or set.
extern uint32_t g_opmode_board;
