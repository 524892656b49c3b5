// The wired interface: bringing it up with a static address or by DHCP, and taking it down.
#pragma once

#include <cstdint>

#include "net/interface_info.h"

/// Whether net_start() has completed since the last net_stop(). What happens to an interface elsewhere does
/// not count.
extern bool net_if_started[net_if_count];

/// Marks every interface as not started.
void net_init();

/// Configures an interface, waits for its link and marks it as started. Addresses are in network byte order;
/// without `ip_addr` (null or 0) DHCP is used, `netmask` and `gateway` may be left out likewise. The
/// interface gets the hardware address of the product record, where there is one. A started interface is left
/// as it is. Result: true, or false after a message; the interface is then configured as far as it came, and
/// not marked.
bool net_start(int if_index, const uint32_t* ip_addr, const uint32_t* netmask, const uint32_t* gateway);

/// Takes an interface down that was started. Result: true.
bool net_stop(int if_index);

/// Looks for `text` in the tool's listing of an interface, once and `seconds` times more, a second apart,
/// until it is there (`find` = 1) or is not (`find` = 0). Result: true when it came so; false when it did
/// not, or after an error.
bool net_syscmd_ifconfig_wait_string(const char* if_name, int seconds, const char* text, int find);
