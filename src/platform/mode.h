// The operating mode: which board the shell runs on, which optional I/O is fitted, and how many serial ports
// the product has. It is found out at start-up (platform/discover.h) and never stored.
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

constexpr opmode_boards opmode_board_default = opmode_board_tk10_eval;
constexpr opmode_ios opmode_io_default = opmode_io_none;
constexpr uint32_t opmode_num_serports_default = 2;
constexpr uint32_t opmode_num_serports_max = 32;

/// The mode; the defaults unless something else was found or set.
extern opmode_boards g_opmode_board;
extern opmode_ios g_opmode_io;
extern uint32_t g_opmode_num_serports;  // up to opmode_num_serports_max
