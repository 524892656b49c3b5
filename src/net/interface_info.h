// The network interfaces by name and index, and what they are set to.
#pragma once

#include <cstdint>

constexpr int net_if_count = 1;
/// Interfaces are known everywhere by their index in this table.
extern const char* const net_if_names[net_if_count];

/// Result: the index of the interface of exactly this name, or -1.
int net_name_to_index(const char* name);

/// Result: true when there is an interface of that index; false after an error.
bool net_check_index(int if_index);

/// Each stores what the kernel has: address and netmask in network byte order, the 6 bytes of the hardware
/// address. Result: true; false without a message when there is none, after an error when the kernel cannot
/// be asked.
bool net_get_ipaddr(int if_index, uint32_t* out);
bool net_get_netmask(int if_index, uint32_t* out);
bool net_get_hwaddr(int if_index, uint8_t* out);

/// Stores the gateway of the interface's default route in network byte order. Result: true; false when there
/// is none (`*out` is then 0 or untouched), or after an error.
bool net_get_gateway(int if_index, uint32_t* out);
