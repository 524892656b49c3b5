// Tools run: tftp, /bin/ping.
#include "net/transfer.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "net/address.h"
#include "net/interface.h"
#include "util/command_pipe.h"
#include "util/log.h"
#include "util/shell_word.h"

namespace {

constexpr int transfer_if_index = 0;

bool compose_get(long_command_line& line, const uint8_t* server, const char* file_remote,
                 const char* file_local) {
  shell_word remote;
  shell_word local;
  const bool is_named = file_local[0] != '\0';
  return remote.set_quoted(file_remote) && local.set_bare(file_local) &&
         compose_command(line, "tftp -g %s%s -r \"%s\" %s", is_named ? "-l " : "", local.text(),
                         remote.text(), net_format_ip(server).text());
}

}  // namespace

bool net_start_for_transfer() {
  const char* if_name = net_if_names[transfer_if_index];
  log_printf(level_note, "Using interface '%s'\n", if_name);
  if (net_start(transfer_if_index, nullptr, nullptr, nullptr)) {
    return true;
  }
  log_printf(level_error, "Unable to start network '%s'\n", if_name);
  return false;
}

bool net_tftp_get(const uint8_t* server, const char* file_remote, const char* file_local) {
  log_printf(level_trace, "%s:\n", __func__);
  if (!net_start_for_transfer()) {
    return false;
  }
  const char* local = file_local != nullptr ? file_local : "";
  log_printf(level_verbose, "%s: ip_addr=%s file_remote=%s file_local=%s\n", __func__,
             net_format_ip(server).text(), file_remote, local);
  long_command_line line;
  if (!compose_get(line, server, file_remote, local)) {
    return false;
  }
  log_printf(level_plain, "Retrieving file '%s' via tftp...\n", file_remote);
  return exec_system_cmd_print_with_match(line.text(), " ", nullptr, true) == 0;
}

bool net_tftp_compose_stream(long_command_line& line, const uint8_t* server, const char* file_remote) {
  shell_word remote;
  return remote.set_quoted(file_remote) &&
         compose_command(line, "tftp -g -r \"%s\" -l - %s", remote.text(), net_format_ip(server).text());
}

bool net_ping(int if_index, const uint8_t* host) {
  log_printf(level_trace, "%s:\n", __func__);
  command_line command;
  if (!net_check_index(if_index) || !compose_command(command, "/bin/ping -I %s -c 4 -W 2 %s 2>&1",
                                                     net_if_names[if_index], net_format_ip(host).text())) {
    return false;
  }
  log_printf(level_verbose, "%s: popen(%s)\n", __func__, command.text());
  command_pipe tool(command.text(), "r");
  if (!tool) {
    log_printf(level_error, "%s: popen(%s) error(%s)\n", __func__, command.text(), strerror(errno));
    return false;
  }
  char output[256];
  while (fgets(output, sizeof output, tool.stream()) != nullptr) {
    log_printf(level_plain, "%s", output);
  }
  return true;
}
