// What a subcommand of kesto is. Each has a file of its own that ends with its record; main.cpp lists them.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

struct subcommand {
  const char* name;       // its words: "image build"
  const char* arguments;  // what follows them, for the synopsis
  const char* purpose;    // one line for the list of commands
  const char* text;       // what "--help" says between the synopsis and the options; ends with a newline
  /// Declares the command's options and operands at `line`; those with a description are shown by "--help",
  /// under the name of their group. Result: runs the command once the line was understood, and gives the exit
  /// status of the program. It may call `line` for what was given.
  std::function<int()> (*declare)(CLI::App& line);
};

extern const subcommand image_build;
extern const subcommand image_check_command;
extern const subcommand image_extract;
extern const subcommand image_info;
extern const subcommand image_verify;
extern const subcommand device_ports;
extern const subcommand device_run;
extern const subcommand device_show;
extern const subcommand device_install;
