// Paths, below /sys/class/gpio: export, unexport, gpioN/direction, gpioN/value. A value is written together
// with its terminating zero byte.
#include "platform/gpiolib.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#include "platform/mode.h"
#include "tty/port.h"
#include "util/log.h"
#include "util/parse.h"
#include "util/text_buffer.h"
#include "util/unique_fd.h"

const gpiolib_signal* gpiolib_current = gpiolib_tk20;
int32_t gpiolib_current_size = gpiolib_tk20_size;

namespace {

constexpr const char* export_path = "/sys/class/gpio/export";
constexpr const char* unexport_path = "/sys/class/gpio/unexport";
using line_path = text_buffer<48>;

line_path path_of(const gpiolib_signal& row, const char* attribute) {
  line_path path;
  path.format("/sys/class/gpio/gpio%d/%s", row.gpio, attribute);
  return path;
}

// The value is set only when the kernel took every byte. Result: null, or the step that failed: "open" or
// "write".
const char* write_attribute(const char* path, const char* value) {
  const unique_fd file(open(path, O_WRONLY | O_CLOEXEC));
  if (!file) {
    return "open";
  }
  const size_t size = strlen(value) + 1;
  return write(file.get(), value, size) == static_cast<ssize_t>(size) ? nullptr : "write";
}

const char* write_number(const char* path, int32_t number) {
  text_buffer<12> text;
  text.format("%d", number);
  return write_attribute(path, text.text());
}

bool is_active(const gpiolib_signal& row) {
  return row.io_mode == opmode_io_none || row.io_mode == g_opmode_io;
}

// The first active row after `row` (from the first for null) that matches.
template <typename Matches>
const gpiolib_signal* find_row(const gpiolib_signal* row, Matches matches) {
  const gpiolib_signal* end = gpiolib_current + gpiolib_current_size;
  for (row = row == nullptr ? gpiolib_current : row + 1; row != end; ++row) {
    if (is_active(*row) && matches(*row)) {
      return row;
    }
  }
  return nullptr;
}

const gpiolib_signal* next_row(const gpiolib_signal* row) {
  return find_row(row, [](const gpiolib_signal& /*any*/) { return true; });
}

const gpiolib_signal* find_number(int32_t number) {
  return find_row(nullptr, [number](const gpiolib_signal& row) { return row.gpio == number; });
}

bool is_plain_gpio(const gpiolib_signal& row) {
  return row.gpio >= 0 && row.pin_mode == nullptr;
}

void gpiolib_unexport_all() {
  log_printf(level_trace, "%s:\n", __func__);
  for (int32_t number = gpiolib_lowest; number <= gpiolib_highest; ++number) {
    line_path line;
    line.format("/sys/class/gpio/gpio%d", number);
    if (access(line.text(), F_OK) != 0) {
      continue;
    }
    const char* failed = write_number(unexport_path, number);
    // Lines that kernel drivers hold cannot be given back; that is so on every board.
    if (failed != nullptr && log_level >= level_verbose) {
      log_printf(level_error, "Failed %s to unexport gpio%d\n", failed, number);
    }
  }
}

void choose_table() {
  switch (g_opmode_board) {
    case opmode_board_tk20:
      gpiolib_current = gpiolib_tk20;
      gpiolib_current_size = gpiolib_tk20_size;
      break;
    case opmode_board_tk10_mfg:
      gpiolib_current = gpiolib_tk10_mfg;
      gpiolib_current_size = gpiolib_tk10_mfg_size;
      break;
    default:
      gpiolib_current = nullptr;
      gpiolib_current_size = 0;
      break;
  }
}

// Inputs are exported as such by the kernel; their direction is not written.
void initialise_signal(const gpiolib_signal* row) {
  if (gpiolib_export(row, false) && row->direction == gpiolib_direction_out &&
      gpiolib_set_direction(row, gpiolib_direction_out)) {
    gpiolib_set_state(row, row->default_state);
  }
}

// Result: false when `word` is no state.
bool parse_state(const char* word, gpiolib_states* state) {
  const bool high = strcmp(word, "high") == 0 || strcmp(word, "1") == 0;
  *state = high ? gpiolib_state_1 : gpiolib_state_0;
  return high || strcmp(word, "low") == 0 || strcmp(word, "0") == 0;
}

struct listing_row {
  const char* num;
  const char* dir;
  const char* lv;
  const char* name;
  const char* description;
  const char* source;
  const char* pull;
  const char* part;
};

void print_row(const listing_row& row) {
  log_printf(level_plain, "%-4s %-3s %-2s %-20s %-25s %-13s %-4s %-4s\n", row.num, row.dir, row.lv, row.name,
             row.description, row.source, row.pull, row.part);
}

void print_signal(const gpiolib_signal* row) {
  text_buffer<12> num;
  num.format("%i", row->gpio);
  text_buffer<32> source;
  source.format("%s/%s", row->source, row->connector);
  text_buffer<12> part;
  part.format("%i", row->partner);
  gpiolib_states state = gpiolib_state_none;
  if (is_plain_gpio(*row)) {
    gpiolib_get_state(row, &state);  // stays "-" when the level cannot be read
  }
  print_row({.num = num.text(),
             .dir = row->pin_mode != nullptr ? "-" : gpiolib_direction_names[row->direction],
             .lv = gpiolib_state_names[state],
             .name = row->name,
             .description = row->description,
             .source = source.text(),
             .pull = gpiolib_resistor_names[row->pull],
             .part = row->partner >= 0 ? part.text() : "-"});
}

}  // namespace

bool gpiolib_init() {
  log_printf(level_trace, "%s:\n", __func__);
  gpiolib_unexport_all();
  choose_table();
  for (const gpiolib_signal* row = nullptr; (row = next_row(row)) != nullptr;) {
    if (is_plain_gpio(*row)) {
      initialise_signal(row);
    }
  }
  tty_flush_cli_input();
  return true;
}

const gpiolib_signal* gpiolib_lookup_num_or_name_string(const char* text) {
  log_printf(level_trace, "%s:\n", __func__);
  if (text == nullptr) {
    return nullptr;
  }
  uint32_t number = 0;
  if (!strdectoul(text, &number)) {
    return find_row(nullptr, [text](const gpiolib_signal& row) { return strcmp(row.name, text) == 0; });
  }
  const bool in_range = number >= uint32_t{gpiolib_lowest} && number <= uint32_t{gpiolib_highest};
  return in_range ? find_number(static_cast<int32_t>(number)) : nullptr;
}

const gpiolib_signal* gpiolib_lookup_num_int32(int32_t number) {
  log_printf(level_trace, "%s:\n", __func__);
  return find_number(number);
}

const gpiolib_signal* gpiolib_lookup_next(const gpiolib_signal* row) {
  log_printf(level_trace, "%s:\n", __func__);
  return next_row(row);
}

const gpiolib_signal* gpiolib_lookup_partner(const gpiolib_signal* row) {
  log_printf(level_trace, "%s:\n", __func__);
  return row->partner >= 0 ? find_number(row->partner) : nullptr;
}

int32_t gpiolib_table_index(const gpiolib_signal* row) {
  log_printf(level_trace, "%s:\n", __func__);
  return static_cast<int32_t>(row - gpiolib_current);
}

bool gpiolib_export(const gpiolib_signal* row, bool quiet) {
  log_printf(level_trace, "%s: %d (%s)\n", __func__, row->gpio, row->name);
  if (row->pin_mode != nullptr && !row->pin_mode(1)) {
    log_printf(level_error, "Failed to set pin mode to gpio for gpio%d (%s)\n", row->gpio, row->name);
    return false;
  }
  const char* failed = write_number(export_path, row->gpio);
  if (failed != nullptr && !quiet) {
    log_printf(level_error, "Failed %s to export gpio%d (%s)\n", failed, row->gpio, row->name);
  }
  return failed == nullptr;
}

bool gpiolib_unexport(const gpiolib_signal* row, bool quiet) {
  log_printf(level_trace, "%s:\n", __func__);
  if (const char* failed = write_number(unexport_path, row->gpio)) {
    if (!quiet) {
      log_printf(level_error, "Failed %s to unexport gpio%d (%s)\n", failed, row->gpio, row->name);
    }
    return false;
  }
  if (row->pin_mode != nullptr && !row->pin_mode(0)) {
    if (!quiet) {
      log_printf(level_error, "Failed to set pin mode to peripheral for gpio%d (%s)\n", row->gpio, row->name);
    }
    return false;
  }
  return true;
}

bool gpiolib_set_direction(const gpiolib_signal* row, gpiolib_directions direction) {
  log_printf(level_trace, "%s:\n", __func__);
  const char* value = gpiolib_direction_names[direction];
  if (write_attribute(path_of(*row, "direction").text(), value) != nullptr) {
    // One text for both steps.
    log_printf(level_error, "Failed open to set gpio%d (%s) direction to '%s'\n", row->gpio, row->name,
               value);
    return false;
  }
  return true;
}

bool gpiolib_set_state(const gpiolib_signal* row, gpiolib_states state) {
  log_printf(level_trace, "%s:\n", __func__);
  const char* value = gpiolib_state_names[state];
  if (const char* failed = write_attribute(path_of(*row, "value").text(), value)) {
    log_printf(level_error, "Failed %s to set gpio%d (%s) value to '%s'\n", failed, row->gpio, row->name,
               value);
    return false;
  }
  return true;
}

bool gpiolib_get_state(const gpiolib_signal* row, gpiolib_states* state) {
  log_printf(level_trace, "%s:\n", __func__);
  const unique_fd file(open(path_of(*row, "value").text(), O_RDONLY | O_CLOEXEC));
  if (!file) {
    log_printf(level_error, "Failed open to read gpio%d (%s) value\n", row->gpio, row->name);
    return false;
  }
  char level;
  if (read(file.get(), &level, 1) != 1) {
    log_printf(level_error, "Failed reading gpio%d (%s) value\n", row->gpio, row->name);
    return false;
  }
  for (uint32_t i = 0; i < gpiolib_state_count; ++i) {
    if (level == gpiolib_state_names[i][0]) {
      *state = static_cast<gpiolib_states>(i);
      return true;
    }
  }
  return false;
}

bool gpiolib_set_state_by_num_or_name(const char* signal, const char* state_word) {
  log_printf(level_trace, "%s:\n", __func__);
  const gpiolib_signal* row = gpiolib_lookup_num_or_name_string(signal);
  if (row == nullptr) {
    log_printf(level_error, "Invalid number or name '%s'\n", signal);
    return false;
  }
  gpiolib_states state;
  if (!parse_state(state_word, &state)) {
    log_printf(level_error, "Invalid state '%s'\n", state_word);
    return false;
  }
  if (row->direction != gpiolib_direction_out) {
    log_printf(level_error, "gpio%d (%s) is not an output\n", row->gpio, row->name);
    return false;
  }
  return gpiolib_set_state(row, state);
}

void gpiolib_print_info(const char* signal) {
  log_printf(level_trace, "%s:\n", __func__);
  const gpiolib_signal* only = nullptr;
  if (signal != nullptr) {
    only = gpiolib_lookup_num_or_name_string(signal);
    if (only == nullptr) {
      log_printf(level_error, "Invalid number or name '%s'\n", signal);
      return;
    }
  }
  print_row({"num", "dir", "lv", "signal name", "description", "source", "pull", "part"});
  print_row({"----", "---", "--", "--------------------", "-------------------------", "-------------",
             "----", "----"});
  if (only != nullptr) {
    print_signal(only);
    return;
  }
  for (const gpiolib_signal* row = nullptr; (row = next_row(row)) != nullptr;) {
    print_signal(row);
  }
}
