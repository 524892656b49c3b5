// The product ID tells the board, the hardware configuration (items such as "sp4,dio2x1r") the rest.
#include "platform/discover.h"

#include <cstring>

#include "platform/gpiolib.h"
#include "platform/mode.h"
#include "prodcfg/record.h"
#include "util/log.h"
#include "util/parse.h"

namespace {

struct product_family {
  char prefix[3];  // first two characters of the product ID
  opmode_boards board;
};

// clang-format off
constexpr product_family product_families[] = {
  {"P1", opmode_board_tk10_eval},
  {"P9", opmode_board_tk10_eval},
  {"P0", opmode_board_tk10_mfg},
  {"P7", opmode_board_tk10_mfg},
  {"P8", opmode_board_tk40},
  {"P2", opmode_board_tk20},
  {"P3", opmode_board_tk30},
};
// clang-format on

void set_defaults() {
  g_opmode_board = opmode_board_default;
  g_opmode_io = opmode_io_default;
  g_opmode_num_serports = opmode_num_serports_default;
}

void set_board_from_product_id() {
  if (g_product_config.product_id_length == product_item_absent) {
    return;
  }
  for (const product_family& family : product_families) {
    // A shorter product ID is padded with zeroes.
    if (memcmp(g_product_config.product_id, family.prefix, strlen(family.prefix)) == 0) {
      g_opmode_board = family.board;
      return;
    }
  }
  g_opmode_board = opmode_board_unknown;
  g_opmode_num_serports = 0;
}

// The hardware configuration is a list of items with commas between.
bool begins_item(const char* list, const char* at) {
  return at == list || at[-1] == ',';
}

bool ends_item(const char* at) {
  return *at == '\0' || *at == ',';
}

void set_io_from_hwcfg(const char* hwcfg) {
  const char* name = opmode_io_names[opmode_io_dio2x1r];
  const char* found = strstr(hwcfg, name);
  if (found != nullptr && begins_item(hwcfg, found) && ends_item(found + strlen(name))) {
    g_opmode_io = opmode_io_dio2x1r;
  }
}

// From an item such as "sp4".
void set_serports_from_hwcfg(const char* hwcfg) {
  const char* found = strstr(hwcfg, "sp");
  if (found == nullptr || !begins_item(hwcfg, found)) {
    return;
  }
  const char* digits = found + strlen("sp");
  char* end = nullptr;
  const uint32_t number = strtou32(digits, &end, 10);
  if (end != digits && number <= opmode_num_serports_max && ends_item(end)) {
    g_opmode_num_serports = number;
  }
}

// Stores the value whose name is `text`, or `fallback` for "default". Result: false for any other text.
template <typename Value, size_t Count>
bool parse_name(const char* text, const char* const (&names)[Count], Value fallback, Value* value) {
  if (strcmp(text, "default") == 0) {
    *value = fallback;
    return true;
  }
  for (size_t i = 0; i < Count; ++i) {
    if (strcmp(text, names[i]) == 0) {
      *value = static_cast<Value>(i);
      return true;
    }
  }
  return false;
}

}  // namespace

bool opmode_discover() {
  log_printf(level_trace, "%s:\n", __func__);
  set_defaults();
  if (g_product_config_avail) {
    set_board_from_product_id();
    product_text hwcfg;
    if (prodcfg_get_hwcfg(hwcfg)) {
      set_io_from_hwcfg(hwcfg);
      set_serports_from_hwcfg(hwcfg);
    }
  }
  return gpiolib_init();
}

bool opmode_board_set(const char* text) {
  log_printf(level_trace, "%s:\n", __func__);
  if (!parse_name(text, opmode_board_names, opmode_board_default, &g_opmode_board)) {
    return false;
  }
  gpiolib_init();
  return true;
}

bool opmode_io_set(const char* text) {
  log_printf(level_trace, "%s:\n", __func__);
  if (!parse_name(text, opmode_io_names, opmode_io_default, &g_opmode_io)) {
    return false;
  }
  gpiolib_init();
  return true;
}

bool opmode_num_serports_set(const char* text) {
  log_printf(level_trace, "%s:\n", __func__);
  uint32_t number = opmode_num_serports_default;
  if (strcmp(text, "default") != 0 && (!strdectoul(text, &number) || number > opmode_num_serports_max)) {
    return false;
  }
  g_opmode_num_serports = number;
  return true;
}

void opmode_print() {
  log_printf(level_trace, "%s:\n", __func__);
  log_printf(level_plain, "\nCurrent operating mode:\n");
  log_printf(level_plain, "  Board:    %s\n", opmode_board_names[g_opmode_board]);
  log_printf(level_plain, "  I/O:      %s\n", opmode_io_names[g_opmode_io]);
  log_printf(level_plain, "  # Serial: %u\n", g_opmode_num_serports);
}
