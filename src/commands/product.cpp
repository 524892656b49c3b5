// The product record is the one read at start-up. Tools run for the OEM settings: those of
// bootenv/environment and analysis/ubifs_analysis.
#include "commands/product.h"

#include <cstdint>
#include <cstring>

#include "analysis/ubifs_analysis.h"
#include "bootenv/environment.h"
#include "commands/command.h"
#include "prodcfg/record.h"
#include "util/log.h"
#include "util/printable.h"

namespace {

enum class section { all, id, hwcfg, mac, calibration };

struct section_keyword {
  const char* word;
  section chosen;
};

constexpr section_keyword section_keywords[] = {
    {"id", section::id},
    {"hwcfg", section::hwcfg},
    {"mac", section::mac},
    {"calibration", section::calibration},  // shows nothing
};

// Result: false when `word` is no leading part of a keyword.
bool parse_section(const char* word, section* chosen) {
  for (const section_keyword& keyword : section_keywords) {
    if (strncmp(word, keyword.word, strlen(word)) == 0) {
      *chosen = keyword.chosen;
      return true;
    }
  }
  return false;
}

void print_item(const char* label, bool present, const char* text) {
  log_printf(level_plain, "  Product %s: %s\n", label, present ? printable<64>(text).text() : "<not set>");
}

void print_mac(unsigned id) {
  const uint8_t* mac = g_product_config.mac[id];
  log_printf(level_plain, "    %u: %02X:%02X:%02X:%02X:%02X:%02X\n", id, mac[0], mac[1], mac[2], mac[3],
             mac[4], mac[5]);
}

// Prints one address, chosen by the next word, or all. Result: false after an error.
bool print_macs() {
  unsigned first = 0;
  unsigned last = product_mac_count - 1;
  if (const char* id = token_shift()) {
    if (id[0] < '0' || id[0] > '5' || id[1] != '\0') {
      log_printf(level_error, "Invalid mac id '%s'\n", id);
      return false;
    }
    first = last = static_cast<unsigned>(id[0] - '0');
  }
  log_printf(level_plain, "  Product MAC Address(es):\n");
  for (unsigned id = first; id <= last; ++id) {
    print_mac(id);
  }
  return true;
}

// Result: false after an error.
bool print_sections(section chosen) {
  const auto wanted = [chosen](section part) { return chosen == section::all || chosen == part; };
  product_text text;
  if (wanted(section::id)) {
    print_item("ID", prodcfg_get_product_id(text), text);
  }
  if (wanted(section::hwcfg)) {
    print_item("HWCFG", prodcfg_get_hwcfg(text), text);
  }
  return !wanted(section::mac) || print_macs();
}

}  // namespace

void cmd_show_product() {
  log_printf(level_trace, "%s:\n", __func__);
  if (!g_product_config_avail) {
    log_printf(level_error, "No valid product config found\n");
    return;
  }
  section chosen = section::all;
  const char* word = token_shift();
  if (word != nullptr && !parse_section(word, &chosen)) {
    helper_invalid_parameter(word);
    return;
  }
  log_printf(level_plain, word == nullptr ? "\nProduct Configuration:\n" : "\n");
  if (!print_sections(chosen)) {
    return;
  }
  log_printf(level_plain, "\n");
  _print_done_success_failure(true);
}

void cmd_show_oem() {
  log_printf(level_trace, "%s:\n", __func__);
  char address[32];
  if (uboot_env_get_val("ethaddr", address, sizeof address)) {
    log_printf(level_plain, "OEM Ethernet address: %s\n", printable<31>(address).text());
  } else {
    log_printf(level_plain, "OEM Ethernet address not set\n");
  }
  uint32_t size = 0;
  if (ubi_ubifs_analyze_file_within("vexo_private", "/cfg/", "hidden.oem.xml", &size)) {
    log_printf(level_plain, "OEM Defaults File: Present, size=0x%x (%u)\n", size, size);
  } else {
    log_printf(level_plain, "OEM Defaults File: Not Present\n");
  }
}
