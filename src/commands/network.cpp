// See network.h.
#include "commands/network.h"

#include <cstring>

#include "commands/command.h"
#include "net/address.h"
#include "net/interface.h"
#include "net/link_mode.h"
#include "net/transfer.h"
#include "util/log.h"

namespace {

// An optional interface name in front of the other words.
struct interface_word {
  int if_index = -1;           // -1 when there was none
  const char* next = nullptr;  // the first word that is not the name; null when none is left

  const char* take() {
    next = token_shift();
    if (next != nullptr) {
      if_index = net_name_to_index(next);
      if (if_index >= 0) {
        next = token_shift();
      }
    }
    return next;
  }
  // The same where a word must follow. Result: null after an error.
  const char* take_before_parameter() {
    if (take() == nullptr) {
      helper_incomplete_command();
    }
    return next;
  }
  bool was_given() const { return if_index >= 0; }
  int index() const { return was_given() ? if_index : 0; }
};

struct start_arguments {
  uint32_t ip_addr = 0;
  uint32_t netmask = 0;
  uint32_t gateway = 0;

  // Takes what follows the interface name, beginning with `word`. Result: false after an error.
  bool take(const char* word) {
    if (word == nullptr) {
      return true;
    }
    if (!net_parse_ip(word, "IP address", &ip_addr)) {
      return false;
    }
    word = token_shift();
    if (word == nullptr) {
      helper_incomplete_command();
      return false;
    }
    if (!net_parse_ip(word, "netmask", &netmask)) {
      return false;
    }
    word = token_shift();
    return word == nullptr || net_parse_ip(word, "gateway", &gateway);
  }
};

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

void show_ip(const char* label, int if_index, int (*get)(int, uint32_t*)) {
  uint32_t address;
  show_item(label, get(if_index, &address) != 0 ? net_format_ip(address).text() : unavailable);
}

void show_hwaddr(int if_index) {
  uint8_t hwaddr[net_hwaddr_size];
  show_item("hw addr",
            net_get_hwaddr(if_index, hwaddr) != 0 ? net_format_hwaddr(hwaddr).text() : unavailable);
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
  log_printf(level_plain, "  %s: (%s)\n", net_if_names[if_index],
             net_if_started[if_index] != 0 ? "up" : "down");
  show_hwaddr(if_index);
  show_ip("ip addr", if_index, net_get_ipaddr);
  show_ip("netmask", if_index, net_get_netmask);
  show_ip("gateway", if_index, net_get_gateway);
  show_link(if_index);
  log_printf(level_plain, "\n");
}

// Result: true when the interface that a ping is to leave through is started; false after an error.
bool can_ping_through(const interface_word& interface) {
  const char* if_name = net_if_names[interface.index()];
  const bool is_started = net_if_started[interface.index()] != 0;
  if (is_started && !interface.was_given()) {
    log_printf(level_note, "Using interface '%s'\n", if_name);
  } else if (!is_started && interface.was_given()) {
    log_printf(level_error, "Network interface '%s' is not running\n", if_name);
  } else if (!is_started) {
    log_printf(level_error, "No network interface is running\n");
  }
  return is_started;
}

}  // namespace

void cmd_network_ethernet_link() {
  log_printf(level_trace, "%s:\n", __func__);
  interface_word interface;
  const char* word = interface.take_before_parameter();
  if (word == nullptr) {
    return;
  }
  const int mode = linkmode_from_word(word);
  if (mode < 0) {
    helper_invalid_parameter(word);
    return;
  }
  log_printf(level_verbose, "%s: if_idx=%i mode=%s\n", __func__, interface.index(), word);
  _print_done_success_failure(net_eth_set_link(interface.index(), mode));
}

void cmd_network_ethernet_start() {
  log_printf(level_trace, "%s:\n", __func__);
  interface_word interface;
  start_arguments arguments;
  if (!arguments.take(interface.take())) {
    return;
  }
  log_printf(level_verbose, "%s: ip_addr=%s\n", __func__, net_format_ip(arguments.ip_addr).text());
  log_printf(level_verbose, "%s: netmask=%s\n", __func__, net_format_ip(arguments.netmask).text());
  log_printf(level_verbose, "%s: gateway=%s\n", __func__, net_format_ip(arguments.gateway).text());
  const int if_index = interface.index();
  if (net_if_started[if_index] != 0) {
    log_printf(level_error, "Network interface '%s' is already running\n", net_if_names[if_index]);
    _print_done_success_failure(0);
    return;
  }
  _print_done_success_failure(
      net_start(if_index, &arguments.ip_addr, &arguments.netmask, &arguments.gateway));
}

void cmd_network_ethernet_stop() {
  log_printf(level_trace, "%s:\n", __func__);
  interface_word interface;
  interface.take();  // a name that is not known stands for the first interface
  const int if_index = interface.index();
  if (net_if_started[if_index] == 0) {
    log_printf(level_note, "Network interface '%s' is already stopped\n", net_if_names[if_index]);
    _print_done_success_failure(1);
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
  interface_word interface;
  const char* word = interface.take_before_parameter();
  uint32_t host;
  if (word == nullptr || !net_parse_ip(word, "IP address", &host) || !can_ping_through(interface)) {
    return;
  }
  const int if_index = interface.index();
  log_printf(level_verbose, "%s: if_idx=%i (%s), ip_addr=%s\n", __func__, if_index, net_if_names[if_index],
             net_format_ip(host).text());
  _print_done_success_failure(net_ping(if_index, net_octets(host)));
}
