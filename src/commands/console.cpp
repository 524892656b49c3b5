// See console.h.
#include "commands/console.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "commands/affirm.h"
#include "commands/command.h"
#include "console/console.h"
#include "util/log.h"
#include "util/parse.h"
#include "util/signals.h"

namespace {

// The parameters of "set console" in their order. Each takes the current word if it is its kind, and leaves
// it to the next if not. `word` is null when none is left.
struct console_arguments {
  tty_port candidate;
  unsigned delay_seconds = 0;
  const char* word = token_shift();

  void next() { word = token_shift(); }

  void take_delay() {
    // NOLINTNEXTLINE(cert-err34-c): a delay beyond 32 bits is cut by the device's own conversion
    if (word != nullptr && sscanf(word, "-d%u", &delay_seconds) == 1) next();
  }
  void take_port() {
    uint32_t number;
    if (word != nullptr && strdectoul(word, &number) != 0 && number <= tty_highest_port) {
      candidate.port = static_cast<int32_t>(number);
      next();
    }
  }
  void take_speed() {
    uint32_t number;
    if (word != nullptr && strdectoul(word, &number) != 0 && tty_speed_is_valid(number) != 0) {
      candidate.speed = number;
      next();
    }
  }
  void take_mode() {
    for (uint32_t mode = 0; mode < tty_mode_count; ++mode) {
      if (word != nullptr && strcmp(word, tty_mode_names[mode]) == 0) {
        candidate.mode = mode;
        if (mode == tty_mode_rs232) {
          candidate.termination = 0;
        } else {
          candidate.flow = tty_flow_none;
        }
        next();
        return;
      }
    }
  }
  void take_flow() {
    for (uint32_t flow = 0; flow < tty_flow_count; ++flow) {
      if (word != nullptr && strcmp(word, tty_flow_names[flow]) == 0) {
        candidate.flow = flow;
        next();
        return;
      }
    }
  }
  // Result: false after an error.
  bool take_termination() {
    if (word != nullptr && strcmp(word, "term") == 0) {
      if (candidate.mode == tty_mode_rs232) {
        log_printf(level_error, "Termination not valid in rs232 mode\n");
        return false;
      }
      candidate.termination = 1;
      next();
    } else if (word != nullptr && strcmp(word, "noterm") == 0) {
      candidate.termination = 0;
      next();
    }
    return true;
  }
  // Result: false after an error.
  bool take_all() {
    take_delay();
    take_port();
    take_speed();
    take_mode();
    take_flow();
    if (!take_termination()) {
      return false;
    }
    if (word != nullptr) {
      helper_invalid_parameter(word);
      return false;
    }
    return true;
  }
};

struct standard_descriptor {
  int fd;
  const char* name;
};

constexpr standard_descriptor standard_descriptors[] = {
    {STDIN_FILENO, "STDIN_FILENO"},
    {STDOUT_FILENO, "STDOUT_FILENO"},
    {STDERR_FILENO, "STDERR_FILENO"},
};

void show_descriptor(const standard_descriptor& descriptor) {
  log_printf(level_plain, "%s:\n", descriptor.name);
  termios settings;
  if (tcgetattr(descriptor.fd, &settings) != 0) {
    log_printf(level_error, "%s: Failed to get termios for %s\n", "cmd_show_console", descriptor.name);
    return;
  }
  log_printf(level_plain, "  iflag:  0x%08x\n", settings.c_iflag);
  log_printf(level_plain, "  oflag:  0x%08x\n", settings.c_oflag);
  log_printf(level_plain, "  cflag:  0x%08x\n", settings.c_cflag);
  log_printf(level_plain, "  lflag:  0x%08x\n", settings.c_lflag);
  log_printf(level_plain, "  fcntl:  0x%08x\n", static_cast<unsigned>(fcntl(descriptor.fd, F_GETFL)));
}

// As the device's own conversion does: what is no number is 0, what does not fit is cut to what does.
int32_t parse_iterations(const char* text) {
  const long long value = strtoll(text, nullptr, 10);
  return static_cast<int32_t>(std::clamp<long long>(value, INT32_MIN, INT32_MAX));
}

void print_pattern_line() {
  for (char character = '!'; character <= '~'; ++character) {
    log_printf(level_plain, "%c", character);
  }
  log_printf(level_plain, "\n");
}

}  // namespace

void cmd_set_console() {
  log_printf(level_trace, "%s:\n", __func__);
  console_arguments arguments;
  memcpy(static_cast<void*>(&arguments.candidate), &tty_cli, sizeof tty_cli);
  if (!arguments.take_all()) {
    return;
  }
  // Records are copied and zeroed whole, padding included.
  // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison)
  if (memcmp(&arguments.candidate, &tty_cli, sizeof tty_cli) == 0) {
    log_printf(level_plain, "<no change>\n");
    _print_done_success_failure(1);
    return;
  }
  if (tty_validate_settings(&arguments.candidate) == 0) {
    _print_done_success_failure(0);
    return;
  }
  if (_affirmation() == 0) {
    return;
  }
  if (tty_remap_stdio(&arguments.candidate, arguments.delay_seconds) == 0) {
    // Two result lines: operators' scripts know this pair as the sign of a console that did not move whole.
    _print_done_success_failure(0);
  }
  _print_done_success_failure(1);
}

void cmd_show_console() {
  log_printf(level_trace, "%s:\n", __func__);
  tty_show_console();
  if (log_level < level_verbose) {
    return;
  }
  for (const standard_descriptor& descriptor : standard_descriptors) {
    show_descriptor(descriptor);
  }
  log_printf(level_plain, "\n");
}

void cmd_show_pattern() {
  log_printf(level_trace, "%s:\n", __func__);
  const char* text = token_shift();
  const int32_t iterations = text != nullptr ? parse_iterations(text) : 1;
  if (iterations < 0) {
    helper_invalid_parameter(text);
    return;
  }
  sigint_install_test_interrupt();
  int32_t left = iterations;
  do {
    print_pattern_line();
  } while (test_interrupted == 0 && (iterations == 0 || --left > 0));
  sigint_install_ignore();
}
