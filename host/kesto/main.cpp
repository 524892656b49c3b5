// kesto: the technician's end of the recovery loader. Finds the subcommand and runs it.
#include <getopt.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "kesto/report.h"
#include "kesto/subcommand.h"

namespace {

constexpr const subcommand* subcommands[] = {
    &image_build,
    &image_info,
    &image_verify,
};

void print_help() {
  printf(
      "NAME\n"
      "  kesto - firmware images for devices with the recovery loader\n"
      "\n"
      "SYNOPSIS\n");
  for (const subcommand* command : subcommands) {
    printf("  kesto %s %s\n", command->name, command->arguments);
  }
  printf("\nCOMMANDS\n");
  for (const subcommand* command : subcommands) {
    printf("  %-14s %s\n", command->name, command->purpose);
  }
  printf(
      "\n"
      "  'kesto COMMAND --help' tells all about one of them.\n"
      "\n"
      "EXIT STATUS\n"
      "  0  done\n"
      "  1  an input is bad, or the system refused; standard error says what\n"
      "  2  the command line is wrong\n"
      "\n"
      "EXAMPLES\n"
      "  kesto image build -o image.rom --version 3.1.0.0R1 --bootloader u-boot.bin --kernel uImage\n"
      "  kesto image info image.rom\n"
      "  kesto image verify image.rom\n");
}

bool is_help(const char* word) {
  return strcmp(word, "-h") == 0 || strcmp(word, "--help") == 0;
}

// Result: how many words of `arguments` the name of the command takes up, 0 when they are others.
int words_matched(const subcommand& command, int count, char** arguments) {
  const char* rest = command.name;
  for (int i = 0; i < count; ++i) {
    const size_t length = strcspn(rest, " ");
    if (strlen(arguments[i]) != length || strncmp(arguments[i], rest, length) != 0) {
      return 0;
    }
    if (rest[length] == '\0') {
      return i + 1;
    }
    rest += length + 1;
  }
  return 0;
}

int run(int count, char** arguments) {
  if (count == 0) {
    return report_usage("", "no command");
  }
  if (is_help(arguments[0])) {
    print_help();
    return exit_success;
  }
  for (const subcommand* command : subcommands) {
    if (const int words = words_matched(*command, count, arguments)) {
      return command->run(count - words + 1, arguments + words - 1);
    }
  }
  if (arguments[0][0] == '-' || count == 1 || arguments[1][0] == '-') {
    return report_usage("", "no command '%s'", arguments[0]);
  }
  return report_usage("", "no command '%s %s'", arguments[0], arguments[1]);
}

}  // namespace

int subcommand_help(const subcommand& command) {
  printf("usage: kesto %s %s\n\n%s.\n", command.name, command.arguments, command.purpose);
  command.print_help();
  return exit_success;
}

int subcommand_operands(const subcommand& command, int argument_count, char** arguments, int count,
                        char*** operands) {
  constexpr option options[] = {{"help", no_argument, nullptr, 'h'}, {}};
  opterr = 0;
  const int found = getopt_long(argument_count, arguments, ":h", options, nullptr);
  if (found == 'h') {
    return subcommand_help(command);
  }
  if (found != -1) {
    return report_bad_option(command.name, found, arguments);
  }
  if (argument_count - optind != count) {
    return report_usage(command.name,
                        argument_count - optind < count ? "too few arguments" : "too many arguments");
  }
  *operands = arguments + optind;
  return -1;
}

int main(int argc, char** argv) {
  const int status = run(argc - 1, argv + 1);
  if (fflush(stdout) != 0 || ferror(stdout) != 0) {
    return report_error("standard output: write error (%s)", strerror(errno));
  }
  return status;
}
