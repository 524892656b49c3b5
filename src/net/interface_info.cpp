// Requests: SIOCGIFADDR, SIOCGIFNETMASK, SIOCGIFHWADDR. Tools run: /bin/iproute, which lists the routes as
// "default via GATEWAY dev INTERFACE ...", /bin/grep, /usr/bin/awk.
#include "net/interface_info.h"

#include <netinet/in.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "net/address.h"
#include "net/interface_request.h"
#include "util/command_pipe.h"
#include "util/exec.h"
#include "util/log.h"
#include "util/parse.h"

const char* const net_if_names[net_if_count] = {"eth0"};

namespace {

// The beginning of every getter. Result: false after an error.
bool enter_getter(const char* caller, int if_index) {
  log_printf(level_trace, "%s: if_idx=%i\n", caller, if_index);
  return net_check_index(if_index);
}

// Asks for the address that `number` stands for. Result: false when there is no answer.
bool ask_kernel(const char* caller, int if_index, unsigned long number, sockaddr* answer) {
  if (!enter_getter(caller, if_index)) {
    return false;
  }
  interface_request request(net_if_names[if_index]);
  if (!request) {
    log_printf(level_error, "%s: socket() error(%s)\n", caller, strerror(errno));
    return false;
  }
  if (!request.make(number)) {
    return false;
  }
  *answer = request.record.ifr_addr;
  return true;
}

bool ask_ip(const char* caller, int if_index, unsigned long number, uint32_t* out) {
  sockaddr answer;
  if (!ask_kernel(caller, if_index, number, &answer)) {
    return false;
  }
  sockaddr_in internet;
  memcpy(&internet, &answer, sizeof internet);
  *out = internet.sin_addr.s_addr;
  return true;
}

}  // namespace

int net_name_to_index(const char* name) {
  log_printf(level_trace, "%s:\n", __func__);
  for (int i = 0; i < net_if_count; ++i) {
    if (strcmp(name, net_if_names[i]) == 0) {
      return i;
    }
  }
  return -1;
}

bool net_check_index(int if_index) {
  if (if_index >= 0 && if_index < net_if_count) {
    return true;
  }
  log_printf(level_error, "Invalid interface number '%i'\n", if_index);
  return false;
}

bool net_get_ipaddr(int if_index, uint32_t* out) {
  return ask_ip(__func__, if_index, SIOCGIFADDR, out);
}

bool net_get_netmask(int if_index, uint32_t* out) {
  return ask_ip(__func__, if_index, SIOCGIFNETMASK, out);
}

bool net_get_hwaddr(int if_index, uint8_t* out) {
  sockaddr answer;
  if (!ask_kernel(__func__, if_index, SIOCGIFHWADDR, &answer)) {
    return false;
  }
  memcpy(out, answer.sa_data, net_hwaddr_size);
  return true;
}

bool net_get_gateway(int if_index, uint32_t* out) {
  if (!enter_getter(__func__, if_index)) {
    return false;
  }
  command_line command;
  if (!compose_command(command, "/bin/iproute | /bin/grep %s | /bin/grep default | /usr/bin/awk '{print $3}'",
                       net_if_names[if_index])) {
    return false;
  }
  log_printf(level_verbose, "%s: popen(%s)\n", __func__, command.text());
  command_pipe tools(command.text(), "r");
  if (!tools) {
    log_printf(level_error, "%s: popen(%s) error(%s)\n", __func__, command.text(), strerror(errno));
    return false;
  }
  char line[256];
  if (fgets(line, sizeof line, tools.stream()) == nullptr || line[0] == '\0') {
    return false;
  }
  line[strlen(line) - 1] = '\0';
  *out = ipaddr4_strtoul(line);
  return *out != 0;
}
