// The kernel's command line: the console is what it names, or what it was; and whatever it names can be
// shown.
#include <cstdlib>

#include "console/console.h"
#include "fuzz_opened.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  run_all_messages_silently();
  const opened_input file(data, size);
  tty_cli = {};
  get_cli_console_from_cmdline();
  const std::string line = file.text().substr(0, std::min<size_t>(254, file.text().find('\n'))).c_str();
  const size_t setting = line.find("cli_console=");
  int port = 0, speed = 0;
  if (setting == std::string::npos ||
      sscanf(line.c_str() + setting, "cli_console=ttyS%d,%d", &port, &speed) != 2) {
    port = tty_port().port;
    speed = static_cast<int>(tty_port().speed);
  }
  if (tty_cli.port != port || tty_cli.speed != static_cast<uint32_t>(speed)) {
    abort();
  }
  speed_t constant;
  if (tty_speed_constant(tty_cli.speed, &constant) != tty_speed_is_valid(tty_cli.speed) ||
      tty_path_of(tty_cli).text() != "/dev/ttyS" + std::to_string(port)) {
    abort();
  }
  tty_show_console();
  return 0;
}
