// What the unit tests of the network share: nothing is started, no product record, and the wired interface of
// the device root (support/ethernet.h) to set and look at.
#ifndef NET_TEST_H
#define NET_TEST_H

#include <arpa/inet.h>

#include <cstring>
#include <map>
#include <sstream>
#include <string>

#include "ethernet.h"
#include "loader_test.h"
#include "net/interface.h"
#include "prodcfg/record.h"

constexpr uint32_t get_address = 0x8915;
constexpr uint32_t get_netmask = 0x891B;
constexpr uint32_t get_hwaddr = 0x8927;
constexpr uint32_t ethtool = 0x8946;

inline uint32_t ip(const char* dotted) {
  return inet_addr(dotted);
}

class net_test : public loader_test {
 protected:
  net_test() { reset(); }
  ~net_test() override { reset(); }

  static void reset() {
    memset(net_if_started, 0, sizeof net_if_started);
    prodcfg_reset();
    g_product_config_avail = 0;
  }

  static void give_product_mac(const uint8_t (&mac)[6]) {
    memcpy(g_product_config.mac[0], mac, sizeof mac);
    g_product_config_avail = 1;
  }

  std::map<std::string, std::string> interface_state() const {
    std::map<std::string, std::string> state;
    std::istringstream file(root.read_file(ETHERNET_FILE));
    for (std::string line; std::getline(file, line);)
      state[line.substr(0, line.find('='))] = line.substr(line.find('=') + 1);
    return state;
  }

  void set_interface(const std::string& key, const std::string& value) const {
    auto state = interface_state();
    state[key] = value;
    std::string text;
    for (const auto& [name, content] : state)
      text += name + "=" + content + "\n";
    root.write_file(ETHERNET_FILE, text);
  }

  // Tool runs as the program composed them, and sleeps, in order.
  lines steps() const {
    lines steps;
    for (const device_event& event : root.events()) {
      if (event.kind == "shell" || event.kind == "sleep") steps.push_back(event.fields[0]);
    }
    return steps;
  }
};

#endif
