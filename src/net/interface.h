// The wired interface: bringing it up with a static address or by DHCP, and taking it down.
#pragma once

#include <cstdint>

#include "net/interface_info.h"

/// What this program did, not what the kernel has: 1 once net_start() has completed, 0 after net_stop().
extern uint8_t net_if_started[net_if_count];

/// Marks every interface as not started.
void net_init();

/// Configures an interface, waits for its link and marks it as started: with the addresses given, in network
/// byte order, or by DHCP when `ip_addr` is null or 0; `netmask` and `gateway` may be, too. The hardware
/// address is made that of the product record where there is one. An interface that is started is left as it
/// is. Result: 1, or 0 after a message; the interface then stays as far as it came, not marked.
int net_start(int if_index, const uint32_t* ip_addr, const uint32_t* netmask, const uint32_t* gateway);

/// Takes an interface down that was started. Result: 1.
int net_stop(int if_index);

/// Looks for `text` in the tool's listing of an interface, once and `seconds` times more, a second apart,
/// until it is there (`find` = 1) or is not (`find` = 0). Result: 1, or 0 when it never came so, or after an
/// error.
int net_syscmd_ifconfig_wait_string(const char* if_name, int seconds, const char* text, int find);
