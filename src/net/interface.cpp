// Tools run: /sbin/ifconfig, /sbin/route, /sbin/udhcpc.
#include "net/interface.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "net/address.h"
#include "prodcfg/record.h"
#include "util/command_pipe.h"
#include "util/exec.h"
#include "util/log.h"
#include "util/parse.h"

bool net_if_started[net_if_count];

namespace {

constexpr unsigned down_seconds = 2;
constexpr int up_extra_polls = 2;
constexpr unsigned up_seconds = 2;
constexpr int link_extra_polls = 5;
constexpr unsigned settle_seconds = 1;

// Addresses of a static configuration, 0 = not given. Without `address` DHCP is used.
struct ip_configuration {
  uint32_t address;
  uint32_t netmask;
  uint32_t gateway;
};

uint32_t value_or_zero(const uint32_t* value) {
  return value != nullptr ? *value : 0;
}

bool is_started(int if_index) {
  return if_index >= 0 && if_index < net_if_count && net_if_started[if_index];
}

// A configuration tool that prints anything has failed.
bool run_silently(const command_line& line) {
  return exec_system_cmd_check_stderr(line.text(), true);
}

bool run_ifconfig(const char* if_name, const char* word) {
  command_line line;
  return compose_command(line, "/sbin/ifconfig %s %s", if_name, word) && run_silently(line);
}

// The hardware address that the product record wants an interface to have instead of its `current` one, or
// null when nothing is to be changed.
const uint8_t* hwaddr_to_set(const char* if_name, const uint8_t* current) {
  const uint8_t* wanted = g_product_config.mac[0];
  if (!g_product_config_avail || !mac_address_is_valid(wanted)) {
    log_printf(level_note, "Can't get mac address from product config, using %s\n",
               net_format_hwaddr(current).text());
    return nullptr;
  }
  if (memcmp(wanted, current, net_hwaddr_size) == 0) {
    return nullptr;
  }
  log_printf(level_note, "Reconfiguring %s mac address\n", if_name);
  return wanted;
}

bool set_hwaddr(const char* if_name, const uint8_t* hwaddr) {
  command_line line;
  return compose_command(line, "/sbin/ifconfig %s hw ether %s", if_name, net_format_hwaddr(hwaddr).text()) &&
         run_silently(line);
}

bool set_netmask(const char* if_name, uint32_t netmask) {
  command_line line;
  return compose_command(line, "/sbin/ifconfig %s netmask %s", if_name, net_format_ip(netmask).text()) &&
         run_silently(line);
}

bool add_gateway(const char* if_name, uint32_t gateway) {
  command_line line;
  return compose_command(line, "/sbin/route add default gw %s %s", net_format_ip(gateway).text(), if_name) &&
         run_silently(line);
}

bool take_down(const char* if_name) {
  if (!run_ifconfig(if_name, "down")) {
    return false;
  }
  sleep(down_seconds);
  return true;
}

bool set_static(const char* if_name, const ip_configuration& wanted) {
  return run_ifconfig(if_name, net_format_ip(wanted.address).text()) &&
         (wanted.netmask == 0 || set_netmask(if_name, wanted.netmask)) &&
         (wanted.gateway == 0 || add_gateway(if_name, wanted.gateway));
}

bool net_configure(int if_index, const ip_configuration& wanted) {
  log_printf(level_trace, "%s:\n", __func__);
  if (!net_check_index(if_index)) {
    return false;
  }
  uint8_t current[net_hwaddr_size];
  if (!net_get_hwaddr(if_index, current)) {
    log_printf(level_error, "Can't get configured mac address\n");
    return false;
  }
  const char* if_name = net_if_names[if_index];
  const uint8_t* hwaddr = hwaddr_to_set(if_name, current);
  const bool is_static = wanted.address != 0;
  return ((hwaddr == nullptr && !is_static) || take_down(if_name)) &&
         (hwaddr == nullptr || set_hwaddr(if_name, hwaddr)) && (!is_static || set_static(if_name, wanted)) &&
         run_ifconfig(if_name, "up");
}

bool wait_for_link(const char* if_name) {
  if (!net_syscmd_ifconfig_wait_string(if_name, up_extra_polls, "UP", 1)) {
    log_printf(level_note, "Network interface up timeout\n");
    return false;
  }
  sleep(up_seconds);
  if (!net_syscmd_ifconfig_wait_string(if_name, link_extra_polls, "RUNNING", 1)) {
    log_printf(level_note, "Network link up timeout\n");
    return false;
  }
  return true;
}

bool request_lease(const char* if_name) {
  command_line line;
  if (compose_command(line, "/sbin/udhcpc -nq -t 5 -i %s &>/dev/null", if_name) && run_command(line.text())) {
    return true;
  }
  log_printf(level_note, "DHCP request failed\n");
  return false;
}

enum class listing { has_text, lacks_text, unavailable };

// Looks once at what the tool lists of an interface. All of it is read: a tool whose output nobody reads
// dies.
listing look_for(const char* caller, const char* command, const char* text) {
  command_pipe tool(command, "r");
  if (!tool) {
    log_printf(level_error, "%s: popen(%s) error(%s)\n", caller, command, strerror(errno));
    return listing::unavailable;
  }
  bool found = false;
  char line[256];
  while (fgets(line, sizeof line, tool.stream()) != nullptr) {
    found = found || strstr(line, text) != nullptr;
  }
  return found ? listing::has_text : listing::lacks_text;
}

}  // namespace

void net_init() {
  log_printf(level_trace, "%s:\n", __func__);
  for (bool& started : net_if_started) {
    started = false;
  }
}

bool net_start(int if_index, const uint32_t* ip_addr, const uint32_t* netmask, const uint32_t* gateway) {
  log_printf(level_trace, "%s:\n", __func__);
  if (is_started(if_index)) {
    return true;
  }
  const ip_configuration wanted = {value_or_zero(ip_addr), value_or_zero(netmask), value_or_zero(gateway)};
  const bool is_static = wanted.address != 0;
  log_printf(level_note, is_static ? "Using static configuration\n" : "Using DHCP\n");
  if (!net_configure(if_index, wanted)) {
    const bool is_known = if_index >= 0 && if_index < net_if_count;
    log_printf(level_error, "Unable to configure network '%s'\n",
               is_known ? net_if_names[if_index] : "<unknown>");
    return false;
  }
  const char* if_name = net_if_names[if_index];
  if (!wait_for_link(if_name) || (!is_static && !request_lease(if_name))) {
    return false;
  }
  sleep(settle_seconds);
  net_if_started[if_index] = true;
  return true;
}

bool net_stop(int if_index) {
  log_printf(level_trace, "%s:\n", __func__);
  if (is_started(if_index)) {
    run_ifconfig(net_if_names[if_index], "down");
    net_if_started[if_index] = false;
  }
  return true;
}

bool net_syscmd_ifconfig_wait_string(const char* if_name, int seconds, const char* text, int find) {
  log_printf(level_trace, "%s:\n", __func__);
  log_printf(level_verbose, "%s: interface=%s seconds=%i str=%s find=%d\n", __func__, if_name, seconds, text,
             find);
  command_line command;
  if (!compose_command(command, "/sbin/ifconfig %s", if_name)) {
    return false;
  }
  const listing wanted = find != 0 ? listing::has_text : listing::lacks_text;
  for (int left = seconds;; --left) {
    const listing seen = look_for(__func__, command.text(), text);
    if (seen == wanted) {
      return true;
    }
    if (seen == listing::unavailable || left <= 0) {
      return false;
    }
    sleep(1);
  }
}
