// The command line: finds the subcommand, has CLI11 take its words apart and says what is wrong with them.
#pragma once

#include <span>

#include "kesto/subcommand.h"

struct program {
  const char* purpose;  // behind the name in the first line of the help
  const char* version;  // of the product
  std::span<const subcommand* const> commands;
  const char* help_end;  // what follows the list of the commands
};

/// Runs what the command line asks for; help and version go to standard output. Result: the exit status of
/// the program.
int command_line_run(const program& program, int argc, char** argv);
