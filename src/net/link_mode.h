// Speed, duplex and auto-negotiation of the wired interface, through the kernel's legacy ethtool request.
#pragma once

#include <cstdint>

constexpr int net_eth_linkmode_count = 9;
/// The keywords of the link modes. A mode is its index in this table.
extern const char* const net_eth_linkmode_names[net_eth_linkmode_count];

/// Sets a link mode. What the mode does not name stays as it is. Result: true, or false: after an error for a
/// wrong interface, after a message at VERBOSE for all else.
bool net_eth_set_link(int if_index, int mode);

/// Stores the texts of the configured mode ("auto", "fixed 10 half") and of the link as it is ("down",
/// "100 full"). Result: as above.
bool net_eth_get_link(int if_index, const char** mode_text, const char** link_text);
