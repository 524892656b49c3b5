// Words of "set console", and what "show console" reads: tcgetattr() and F_GETFL of the standard descriptors.
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

// The parameters of "set console" come in a fixed order, each of them may be left out: a function takes the
// next word if it is of its kind, and else leaves it to the next function.

void take_delay(unsigned* seconds) {
  const char* word = token_first();
  // NOLINTNEXTLINE(cert-err34-c): a delay beyond 32 bits is cut by the device's own conversion
  if (word != nullptr && sscanf(word, "-d%u", seconds) == 1) {
    token_shift();
  }
}

void take_port(tty_port& settings) {
  const char* word = token_first();
  uint32_t number;
  if (word != nullptr && strdectoul(word, &number) && number <= tty_highest_port) {
    settings.port = static_cast<int32_t>(number);
    token_shift();
  }
}

void take_speed(tty_port& settings) {
  const char* word = token_first();
  uint32_t number;
  if (word != nullptr && strdectoul(word, &number) && tty_speed_is_valid(number)) {
    settings.speed = number;
    token_shift();
  }
}

bool take_word(const char* wanted) {
  const char* word = token_first();
  const bool is_next = word != nullptr && strcmp(word, wanted) == 0;
  if (is_next) {
    token_shift();
  }
  return is_next;
}

// Takes a word that is one of `names`. Result: its index, `count` when it is none of them.
uint32_t take_name(const char* const* names, uint32_t count) {
  uint32_t index = 0;
  while (index < count && !take_word(names[index])) {
    ++index;
  }
  return index;
}

void take_mode(tty_port& settings) {
  const uint32_t mode = take_name(tty_mode_names, tty_mode_count);
  if (mode == tty_mode_count) {
    return;
  }
  settings.mode = static_cast<tty_modes>(mode);
  if (mode == tty_mode_rs232) {
    settings.termination = false;
  } else {
    settings.flow = tty_flow_none;
  }
}

void take_flow(tty_port& settings) {
  const uint32_t flow = take_name(tty_flow_names, tty_flow_count);
  if (flow != tty_flow_count) {
    settings.flow = static_cast<tty_flows>(flow);
  }
}

// Result: false after an error.
bool take_termination(tty_port& settings) {
  if (take_word("noterm")) {
    settings.termination = false;
  } else if (take_word("term")) {
    if (settings.mode == tty_mode_rs232) {
      log_printf(level_error, "Termination not valid in rs232 mode\n");
      return false;
    }
    settings.termination = true;
  }
  return true;
}

// Result: false after an error.
bool take_settings(tty_port& settings, unsigned* delay_seconds) {
  take_delay(delay_seconds);
  take_port(settings);
  take_speed(settings);
  take_mode(settings);
  take_flow(settings);
  if (!take_termination(settings)) {
    return false;
  }
  if (const char* word = token_first()) {
    helper_invalid_parameter(word);
    return false;
  }
  return true;
}

// Compares all that "set console" can change.
bool are_same_settings(const tty_port& a, const tty_port& b) {
  return a.port == b.port && a.speed == b.speed && a.mode == b.mode && a.flow == b.flow &&
         a.termination == b.termination;
}

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

// Text that is no number is 0; a number that does not fit becomes the nearest that does.
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
  tty_port candidate = tty_cli;
  unsigned delay_seconds = 0;
  if (!take_settings(candidate, &delay_seconds)) {
    return;
  }
  if (are_same_settings(candidate, tty_cli)) {
    log_printf(level_plain, "<no change>\n");
    _print_done_success_failure(true);
    return;
  }
  if (!tty_validate_settings(&candidate)) {
    _print_done_success_failure(false);
    return;
  }
  if (!_affirmation()) {
    return;
  }
  if (!tty_remap_stdio(&candidate, delay_seconds)) {
    // Two result lines: operators' scripts know this pair as the sign of a console that did not move whole.
    _print_done_success_failure(false);
  }
  _print_done_success_failure(true);
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
