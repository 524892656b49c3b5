// The network interfaces by name and index, and what they are set to.
#pragma once

#include <cstdint>

constexpr int net_if_count = 1;
/// Interfaces are known everywhere by their index in this table.
extern const char* const net_if_names[net_if_count];

/// Result: the index of the interface of exactly this name, or -1.
int net_name_to_index(const char* name);

/// Result: true for the index of an interface; false after an error.
bool net_check_index(int if_index);

/// The interface's address and netmask in network byte order, and the 6 bytes of its hardware address, as the
/// kernel has them. Result: 1, or 0: silently when there is none, after an error when it cannot be asked for.
int net_get_ipaddr(int if_index, uint32_t* out);
int net_get_netmask(int if_index, uint32_t* out);
int net_get_hwaddr(int if_index, uint8_t* out);

/// The gateway of the interface's default route in network byte order. Result: 1, or 0 when there is none
/// (`*out` is then 0 or untouched) or after an error.
int net_get_gateway(int if_index, uint32_t* out);
