// Reading and writing the texts of addresses.
#include "net/address.h"

#include "util/log.h"
#include "util/parse.h"

net_ip_text net_format_ip(const uint8_t* octets) {
  net_ip_text text;
  text.format("%d.%d.%d.%d", octets[0], octets[1], octets[2], octets[3]);
  return text;
}

net_ip_text net_format_ip(uint32_t address) {
  return net_format_ip(net_octets(address));
}

net_hwaddr_text net_format_hwaddr(const uint8_t* hwaddr) {
  net_hwaddr_text text;
  text.format("%02X:%02X:%02X:%02X:%02X:%02X", hwaddr[0], hwaddr[1], hwaddr[2], hwaddr[3], hwaddr[4],
              hwaddr[5]);
  return text;
}

bool net_parse_ip(const char* word, const char* what, uint32_t* address) {
  *address = ipaddr4_strtoul(word);
  if (*address != 0 && *address != UINT32_MAX) {
    return true;
  }
  log_printf(level_error, "Invalid %s '%s'\n", what, word);
  return false;
}
