// What a subcommand of kesto is. Each has a file of its own that ends with its record; main.cpp lists them.
#pragma once

struct subcommand {
  const char* name;       // its words: "image build"
  const char* arguments;  // what follows them, for the synopsis
  const char* purpose;    // one line for the list of commands
  void (*print_help)();   // what "--help" prints below the synopsis
  /// `arguments[0]` is the last word of the name. Result: the exit status of the program.
  int (*run)(int count, char** arguments);
};

extern const subcommand image_build;
extern const subcommand image_info;
extern const subcommand image_verify;

/// Prints the synopsis and the help of a subcommand. Result: exit_success.
int subcommand_help(const subcommand& command);

/// For commands whose only options are those for help. Takes `count` operands. Result: -1 with
/// `operands` set, or the exit status that the command ends with.
int subcommand_operands(const subcommand& command, int argument_count, char** arguments, int count,
                        char*** operands);
