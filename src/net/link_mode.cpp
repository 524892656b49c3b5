// Request: SIOCETHTOOL with the commands ETHTOOL_GSET, ETHTOOL_SSET and ETHTOOL_GLINK
// of linux/ethtool.h.
#include "net/link_mode.h"

#include <linux/ethtool.h>
#include <linux/sockios.h>

#include "net/interface_info.h"
#include "net/interface_request.h"
#include "util/log.h"

const char* const net_eth_linkmode_names[net_eth_linkmode_count] = {
    "auto", "auto-10h", "auto-10f", "auto-100h", "auto-100f", "10h", "10f", "100h", "100f",
};

namespace {

constexpr uint32_t advertised_all =
    ADVERTISED_10baseT_Half | ADVERTISED_10baseT_Full | ADVERTISED_100baseT_Half | ADVERTISED_100baseT_Full;

// What a mode sets: with auto-negotiation what is advertised, without it speed (Mbit/s) and duplex.
struct link_setting {
  uint32_t advertised;
  uint16_t speed;
  uint8_t duplex;
  bool auto_negotiation;
};

constexpr link_setting automatic(uint32_t advertised) {
  return {.advertised = advertised, .speed = 0, .duplex = 0, .auto_negotiation = true};
}
constexpr link_setting fixed(uint16_t speed, uint8_t duplex) {
  return {.advertised = 0, .speed = speed, .duplex = duplex, .auto_negotiation = false};
}

// clang-format off
constexpr link_setting link_settings[net_eth_linkmode_count] = {
    automatic(advertised_all),
    automatic(ADVERTISED_10baseT_Half),
    automatic(ADVERTISED_10baseT_Full),
    automatic(ADVERTISED_100baseT_Half),
    automatic(ADVERTISED_100baseT_Full),
    fixed(SPEED_10, DUPLEX_HALF),
    fixed(SPEED_10, DUPLEX_FULL),
    fixed(SPEED_100, DUPLEX_HALF),
    fixed(SPEED_100, DUPLEX_FULL),
};

struct auto_text_row {
  uint32_t advertised;
  const char* text;
};

// In the order in which they are looked for.
constexpr auto_text_row auto_texts[] = {
    {ADVERTISED_10baseT_Half, "auto 10 half"},
    {ADVERTISED_10baseT_Full, "auto 10 full"},
    {ADVERTISED_100baseT_Half, "auto 100 half"},
    {ADVERTISED_100baseT_Full, "auto 100 full"},
};

struct speed_text {
  uint16_t speed;
  uint8_t duplex;
  const char* fixed;  // as a configured mode
  const char* state;  // as the state of a link
};

constexpr speed_text speed_texts[] = {
    {SPEED_10,  DUPLEX_HALF, "fixed 10 half",  "10 half"},
    {SPEED_10,  DUPLEX_FULL, "fixed 10 full",  "10 full"},
    {SPEED_100, DUPLEX_HALF, "fixed 100 half", "100 half"},
    {SPEED_100, DUPLEX_FULL, "fixed 100 full", "100 full"},
};
// clang-format on

constexpr const char* unknown = "<unknown>";
constexpr speed_text unknown_speed = {0, 0, unknown, unknown};

// One ethtool request; `command` is its record, which the kernel completes.
bool ask(interface_request& request, void* command) {
  request.record.ifr_data = static_cast<char*>(command);
  return request.make(SIOCETHTOOL);
}

bool has_socket(const interface_request& request, const char* if_name) {
  if (request) {
    return true;
  }
  log_printf(level_verbose, "Failed to get control socket for '%s'\n", if_name);
  return false;
}

bool read_settings(interface_request& request, const char* if_name, ethtool_cmd* settings) {
  *settings = {};
  settings->cmd = ETHTOOL_GSET;
  if (ask(request, settings)) {
    return true;
  }
  log_printf(level_verbose, "Failed to get device settings for '%s'\n", if_name);
  return false;
}

bool read_link(interface_request& request, const char* if_name, ethtool_value* link) {
  *link = {};
  link->cmd = ETHTOOL_GLINK;
  if (ask(request, link)) {
    return true;
  }
  log_printf(level_verbose, "Failed to get link state for '%s'\n", if_name);
  return false;
}

void apply(const link_setting& setting, ethtool_cmd* settings) {
  if (setting.auto_negotiation) {
    settings->autoneg = AUTONEG_ENABLE;
    // Nothing else stays advertised, not even the ports and the auto-negotiation bit.
    settings->advertising = settings->supported & setting.advertised;
  } else {
    settings->autoneg = AUTONEG_DISABLE;
    settings->speed = setting.speed;
    settings->duplex = setting.duplex;
  }
}

const char* auto_text(uint32_t advertised) {
  if ((advertised & advertised_all) == advertised_all) {
    return "auto";
  }
  for (const auto_text_row& row : auto_texts) {
    if ((advertised & row.advertised) != 0) {
      return row.text;
    }
  }
  return unknown;
}

const speed_text& find_speed_text(const ethtool_cmd& settings) {
  for (const speed_text& row : speed_texts) {
    if (row.speed == settings.speed && row.duplex == settings.duplex) {
      return row;
    }
  }
  return unknown_speed;
}

}  // namespace

bool net_eth_set_link(int if_index, int mode) {
  log_printf(level_trace, "%s: if_idx=%i\n", __func__, if_index);
  if (!net_check_index(if_index)) {
    return false;
  }
  const char* if_name = net_if_names[if_index];
  interface_request request(if_name);
  ethtool_cmd settings;
  if (!has_socket(request, if_name) || !read_settings(request, if_name, &settings)) {
    return false;
  }
  if (mode < 0 || mode >= net_eth_linkmode_count) {
    log_printf(level_verbose, "Invalid mode setting (%i)\n", mode);
    return false;
  }
  apply(link_settings[mode], &settings);
  settings.cmd = ETHTOOL_SSET;
  if (!ask(request, &settings)) {
    log_printf(level_verbose, "Failed to set device settings for '%s'\n", if_name);
    return false;
  }
  return true;
}

bool net_eth_get_link(int if_index, const char** mode_text, const char** link_text) {
  log_printf(level_trace, "%s: if_idx=%i\n", __func__, if_index);
  if (!net_check_index(if_index)) {
    return false;
  }
  const char* if_name = net_if_names[if_index];
  interface_request request(if_name);
  ethtool_value link;
  ethtool_cmd settings;
  if (!has_socket(request, if_name) || !read_link(request, if_name, &link) ||
      !read_settings(request, if_name, &settings)) {
    return false;
  }
  const speed_text& speed = find_speed_text(settings);
  *mode_text = settings.autoneg == AUTONEG_ENABLE ? auto_text(settings.advertising) : speed.fixed;
  *link_text = link.data != 0 ? speed.state : "down";
  return true;
}
