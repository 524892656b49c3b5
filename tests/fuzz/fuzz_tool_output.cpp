// What tools list: routes, interfaces, variables of the boot environment. Byte 0: the tool's exit status.
#include <arpa/inet.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

#include "bootenv/environment.h"
#include "fuzz_input.h"
#include "fuzz_tool.h"
#include "net/interface.h"
#include "net/interface_info.h"

namespace {

void expect(bool holds) {
  if (!holds) {
    abort();
  }
}

std::string first_line(size_t most) {
  const std::string line = tool_output.substr(0, most).c_str();
  return line.substr(0, line.find('\n'));
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  run_all_messages_silently();
  if (size == 0) {
    return 0;
  }
  tool_status = data[0];
  tool_output.assign(reinterpret_cast<const char*>(data + 1), std::min(size - 1, tool_output_most));

  uint32_t gateway = 0;
  const bool found = net_get_gateway(0, &gateway);
  in_addr expected = {};
  const std::string route = first_line(255);
  expect(!found || gateway != 0);
  if (inet_pton(AF_INET, route.c_str(), &expected) == 1 && tool_output.find('\n') == route.size()) {
    expect(gateway == expected.s_addr);
  }

  const bool listed = net_syscmd_ifconfig_wait_string("eth0", 0, "RUNNING", 1);
  expect(listed != net_syscmd_ifconfig_wait_string("eth0", 0, "RUNNING", 0));
  expect(!listed || tool_output.find("RUNNING") != std::string::npos);

  char value[64];
  memset(value, 'x', sizeof value);
  const bool read = uboot_env_get_val("bootcmd", value, sizeof value);
  expect(memchr(value, '\0', sizeof value) != nullptr && strchr(value, '\n') == nullptr);
  expect(value == first_line(sizeof value - 2));
  expect(read == (tool_status == 0 && value[0] != '\0'));
  return 0;
}
