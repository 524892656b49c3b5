// The operating mode: which board the shell runs on, which optional I/O is fitted, and how many serial ports
// the product has. Derived at start-up (discover.h), never stored.
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

enum opmode_ios : uint32_t {
  opmode_io_none,
  opmode_io_dio2x1r,  // two digital inputs, one relay
  opmode_io_count,
};

/// Names indexed by value.
extern const char* const opmode_board_names[opmode_board_count];
extern const char* const opmode_io_names[opmode_io_count];

constexpr uint32_t opmode_board_default = opmode_board_tk10_eval;
constexpr uint32_t opmode_io_default = opmode_io_none;
constexpr uint32_t opmode_num_serports_default = 2;
constexpr uint32_t opmode_num_serports_max = 32;

/// The mode; the defaults unless something else was found or set.
extern uint32_t g_opmode_board;         // opmode_boards
extern uint32_t g_opmode_io;            // opmode_ios
extern uint32_t g_opmode_num_serports;  // 0 to 32
