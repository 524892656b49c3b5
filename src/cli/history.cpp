// A ring of lines in memory, gone with the process.
#include "cli/history.h"

#include <cstdint>
#include <cstdio>

#include "util/log.h"

namespace {

constexpr uint32_t capacity = 20;
constexpr uint32_t entry_size = 257;  // a full line of 256 characters and its terminator

char cli_history[capacity][entry_size];
uint32_t cli_history_num_entries = 0;
uint32_t cli_history_add_index = 0;   // where the next line goes; the oldest one when the ring is full
uint32_t cli_history_back_count = 0;  // steps that browsing has gone back

// The entry at which browsing stands.
const char* current() {
  const uint32_t back = cli_history_back_count;
  const uint32_t wrap = back > cli_history_add_index ? cli_history_num_entries : 0;
  return cli_history[cli_history_add_index + wrap - back];
}

}  // namespace

void history_clear() {
  cli_history_num_entries = 0;
  cli_history_add_index = 0;
  cli_history_back_count = 0;
  for (char* entry : cli_history) {
    entry[0] = '\0';
  }
}

void history_store(const char* line) {
  snprintf(cli_history[cli_history_add_index], entry_size, "%s", line);
  cli_history_add_index = (cli_history_add_index + 1) % capacity;
  cli_history_back_count = 0;
  if (cli_history_num_entries < capacity) {
    ++cli_history_num_entries;
  }
}

const char* history_older() {
  if (cli_history_back_count == cli_history_num_entries) {
    return nullptr;
  }
  ++cli_history_back_count;
  return current();
}

const char* history_newer() {
  if (cli_history_back_count == 0) {
    return nullptr;
  }
  --cli_history_back_count;
  return cli_history_back_count == 0 ? "" : current();
}

void cmd_history() {
  log_printf(level_trace, "%s:\n", __func__);
  log_printf(level_plain, "\nCommand history:\n");
  const uint32_t oldest = cli_history_add_index == cli_history_num_entries ? 0 : cli_history_add_index;
  for (uint32_t i = 0; i < cli_history_num_entries; ++i) {
    log_printf(level_plain, "  %s\n", cli_history[(oldest + i) % cli_history_num_entries]);
  }
  log_printf(level_plain, "\n");
}
