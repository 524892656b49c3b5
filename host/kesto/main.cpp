// kesto: the technician's end of the recovery loader. What it can do, and how the program ends.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>

#include "kesto/command_line.h"
#include "kesto/report.h"
#include "kesto/subcommand.h"

namespace {

constexpr const subcommand* subcommands[] = {
    &image_build,  &image_info, &image_verify, &image_check_command, &image_extract,
    &device_ports, &device_run, &device_show,  &device_install,
};

constexpr program kesto = {
    .purpose = "firmware images, and the devices with the recovery loader that they are for",
    .version = PRODUCT_VERSION,
    .commands = subcommands,
    .help_end =
        "  'kesto COMMAND --help' tells all about one of them, 'kesto --version' which kesto this is.\n"
        "\n"
        "EXIT STATUS\n"
        "  0  done\n"
        "  1  an input is bad, or the system refused; standard error says what\n"
        "  2  the command line is wrong\n"
        "  3  the device failed, and said so\n"
        "  4  no prompt of the shell within the time\n"
        "  5  the port is not there, in use, or cannot be set up\n"
        "  6  the line was lost\n"
        "  7  the device restarted in the middle\n"
        "  8  refused: the image is not for this device, or the answer was no\n"
        "  9  the file could not be served\n"
        "  130  Ctrl-C\n"
        "\n"
        "EXAMPLES\n"
        "  kesto image build -o image.rom --version 3.1.0.0R1 --bootloader u-boot.bin --kernel uImage\n"
        "  kesto image info image.rom\n"
        "  kesto image verify image.rom\n"
        "  kesto run --port /dev/ttyUSB0 'show bootenv'\n"
        "  kesto install --port /dev/ttyUSB0 image.rom --bank 2 --erase --check --boot\n",
};

int run(int argc, char** argv) {
  try {
    return command_line_run(kesto, argc, argv);
  } catch (const std::exception& error) {
    return report_error("%s", error.what());
  }
}

}  // namespace

int main(int argc, char** argv) {
  const int status = run(argc, argv);
  if (fflush(stdout) != 0 || ferror(stdout) != 0) {
    return report_error("standard output: write error (%s)", strerror(errno));
  }
  return status;
}
