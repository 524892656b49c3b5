// The words of the commands in front of the operations of net/.
#include "commands/network.h"

#include <cstring>

#include "commands/command.h"
#include "net/address.h"
#include "net/interface.h"
#include "net/link_mode.h"
#include "net/transfer.h"
#include "util/log.h"

namespace {

constexpr int default_interface = 0;

// Takes an optional interface name. Result: the interface's index, or -1 without a name.
int take_interface() {
  const char* word = token_first();
  const int if_index = word != nullptr ? net_name_to_index(word) : -1;
  if (if_index >= 0) {
    token_shift();
  }
  return if_index;
}

int or_default(int if_index) {
  return if_index >= 0 ? if_index : default_interface;
}

// Takes a word that must be there. Result: null after an error.
const char* take_word() {
  const char* word = token_shift();
  if (word == nullptr) {
    helper_incomplete_command();
  }
  return word;
}

// Addresses of a static configuration, 0 where none was given.
struct ip_addresses {
  uint32_t address = 0;
  uint32_t netmask = 0;
  uint32_t gateway = 0;
};

// Takes "[<ip_addr> <netmask> [<gateway>]]". Result: false after an error.
bool take_addresses(ip_addresses* taken) {
  const char* address = token_shift();
  if (address == nullptr) {
    return true;
  }
  if (!net_parse_ip(address, "IP address", &taken->address)) {
    return false;
  }
  const char* netmask = take_word();
  if (netmask == nullptr || !net_parse_ip(netmask, "netmask", &taken->netmask)) {
    return false;
  }
  const char* gateway = token_shift();
  return gateway == nullptr || net_parse_ip(gateway, "gateway", &taken->gateway);
}

// Result: the index of the mode of exactly this name, or -1.
int linkmode_from_word(const char* word) {
  for (int mode = 0; mode < net_eth_linkmode_count; ++mode) {
    if (strcmp(word, net_eth_linkmode_names[mode]) == 0) {
      return mode;
    }
  }
  return -1;
}

constexpr const char* unavailable = "<unavailable>";

void show_item(const char* label, const char* text) {
  log_printf(level_plain, "%14s : %s\n", label, text);
}

void show_ip(const char* label, int if_index, bool (*get)(int, uint32_t*)) {
  uint32_t address;
  show_item(label, get(if_index, &address) ? net_format_ip(address).text() : unavailable);
}

void show_hwaddr(int if_index) {
  uint8_t hwaddr[net_hwaddr_size];
  show_item("hw addr", net_get_hwaddr(if_index, hwaddr) ? net_format_hwaddr(hwaddr).text() : unavailable);
}

void show_link(int if_index) {
  const char* mode = "<error>";
  const char* state = "<error>";
  net_eth_get_link(if_index, &mode, &state);
  show_item("link mode", mode);
  show_item("link state", state);
}

void show_interface(int if_index) {
  log_printf(level_plain, "\n");
  log_printf(level_plain, "  %s: (%s)\n", net_if_names[if_index], net_if_started[if_index] ? "up" : "down");
  show_hwaddr(if_index);
  show_ip("ip addr", if_index, net_get_ipaddr);
  show_ip("netmask", if_index, net_get_netmask);
  show_ip("gateway", if_index, net_get_gateway);
  show_link(if_index);
  log_printf(level_plain, "\n");
}

// Result: true when a ping can leave through the interface, the only one for -1; false after an error.
bool can_ping_through(int if_index) {
  const bool was_named = if_index >= 0;
  const char* if_name = net_if_names[or_default(if_index)];
  const bool is_started = net_if_started[or_default(if_index)];
  if (is_started && !was_named) {
    log_printf(level_note, "Using interface '%s'\n", if_name);
  } else if (!is_started && was_named) {
    log_printf(level_error, "Network interface '%s' is not running\n", if_name);
  } else if (!is_started) {
    log_printf(level_error, "No network interface is running\n");
  }
  return is_started;
}

}  // namespace

void cmd_network_ethernet_link() {
  log_printf(level_trace, "%s:\n", __func__);
  const int if_index = or_default(take_interface());
  const char* word = take_word();
  if (word == nullptr) {
    return;
  }
  const int mode = linkmode_from_word(word);
  if (mode < 0) {
    helper_invalid_parameter(word);
    return;
  }
  log_printf(level_verbose, "%s: if_idx=%i mode=%s\n", __func__, if_index, word);
  _print_done_success_failure(net_eth_set_link(if_index, mode));
}

void cmd_network_ethernet_start() {
  log_printf(level_trace, "%s:\n", __func__);
  const int if_index = or_default(take_interface());
  ip_addresses ip;
  if (!take_addresses(&ip)) {
    return;
  }
  log_printf(level_verbose, "%s: ip_addr=%s\n", __func__, net_format_ip(ip.address).text());
  log_printf(level_verbose, "%s: netmask=%s\n", __func__, net_format_ip(ip.netmask).text());
  log_printf(level_verbose, "%s: gateway=%s\n", __func__, net_format_ip(ip.gateway).text());
  if (net_if_started[if_index]) {
    log_printf(level_error, "Network interface '%s' is already running\n", net_if_names[if_index]);
    _print_done_success_failure(false);
    return;
  }
  _print_done_success_failure(net_start(if_index, &ip.address, &ip.netmask, &ip.gateway));
}

void cmd_network_ethernet_stop() {
  log_printf(level_trace, "%s:\n", __func__);
  const int if_index = or_default(take_interface());  // also for a name that is none
  if (!net_if_started[if_index]) {
    log_printf(level_note, "Network interface '%s' is already stopped\n", net_if_names[if_index]);
    _print_done_success_failure(true);
    return;
  }
  _print_done_success_failure(net_stop(if_index));
}

void cmd_network_info() {
  log_printf(level_trace, "%s:\n", __func__);
  const char* name = token_shift();
  if (name != nullptr) {
    const int if_index = net_name_to_index(name);
    if (if_index < 0) {
      helper_invalid_parameter(name);
      return;
    }
    show_interface(if_index);
    return;
  }
  for (int i = 0; i < net_if_count; ++i) {
    show_interface(i);
  }
}

void cmd_network_ping() {
  log_printf(level_trace, "%s:\n", __func__);
  const int named = take_interface();
  const char* word = take_word();
  uint32_t host;
  if (word == nullptr || !net_parse_ip(word, "IP address", &host) || !can_ping_through(named)) {
    return;
  }
  const int if_index = or_default(named);
  log_printf(level_verbose, "%s: if_idx=%i (%s), ip_addr=%s\n", __func__, if_index, net_if_names[if_index],
             net_format_ip(host).text());
  _print_done_success_failure(net_ping(if_index, net_octets(host)));
}
