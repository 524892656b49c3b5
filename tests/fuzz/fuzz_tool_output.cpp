// What tools list: routes, interfaces, variables of the boot environment. Byte 0: the tool's exit status.
#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

#include "bootenv/environment.h"
#include "fuzz_input.h"
#include "mtd/mtdparts.h"
#include "net/interface.h"
#include "net/interface_info.h"
#include "util/command_process.h"

namespace {

std::string output;
int status;

void expect(bool holds) {
  if (!holds) {
    abort();
  }
}

std::string first_line(size_t most) {
  const std::string line = output.substr(0, most).c_str();
  return line.substr(0, line.find('\n'));
}

}  // namespace

// In place of /bin/sh; CMakeLists.txt puts them there. As much as fits into a pipe is written at once.
extern "C" pid_t __wrap__Z13command_startPKcRK13command_setup(const char* /*line*/,
                                                              const command_setup& setup) {
  expect(write(setup.output, output.data(), output.size()) == static_cast<ssize_t>(output.size()));
  return 1;
}
extern "C" int __wrap__Z12command_waiti(pid_t /*process*/) {
  return status << 8;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  run_all_messages_silently();
  if (size == 0) {
    return 0;
  }
  status = data[0];
  output.assign(reinterpret_cast<const char*>(data + 1), std::min<size_t>(size - 1, 16384));

  uint32_t gateway = 0;
  const bool found = net_get_gateway(0, &gateway);
  in_addr expected = {};
  const std::string route = first_line(255);
  expect(!found || gateway != 0);
  if (inet_pton(AF_INET, route.c_str(), &expected) == 1 && output.find('\n') == route.size()) {
    expect(gateway == expected.s_addr);
  }

  const bool listed = net_syscmd_ifconfig_wait_string("eth0", 0, "RUNNING", 1);
  expect(listed != net_syscmd_ifconfig_wait_string("eth0", 0, "RUNNING", 0));
  expect(!listed || output.find("RUNNING") != std::string::npos);

  char value[64];
  memset(value, 'x', sizeof value);
  const bool read = uboot_env_get_val("bootcmd", value, sizeof value);
  expect(memchr(value, '\0', sizeof value) != nullptr && strchr(value, '\n') == nullptr);
  expect(value == first_line(sizeof value - 2));
  expect(read == (status == 0 && value[0] != '\0'));
  uint32_t size_kib;
  ubi_get_mtd_size_from_env("ubi0", &size_kib);
  return 0;
}
