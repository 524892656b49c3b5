// IPv4 and hardware addresses as text. An IPv4 address is kept as the socket interface has it: 32 bits in
// network byte order, the first number in the first byte in memory.
#pragma once

#include <cstddef>
#include <cstdint>

#include "util/text_buffer.h"

constexpr size_t net_hwaddr_size = 6;

using net_ip_text = text_buffer<16>;
using net_hwaddr_text = text_buffer<18>;

/// The four numbers of an address, first number first; valid as long as the address is.
inline const uint8_t* net_octets(const uint32_t& address) {
  return reinterpret_cast<const uint8_t*>(&address);
}

/// "192.168.1.5"
net_ip_text net_format_ip(const uint8_t* octets);
net_ip_text net_format_ip(uint32_t address);
/// "00:20:4A:12:34:56"
net_hwaddr_text net_format_hwaddr(const uint8_t* hwaddr);

/// Converts an address typed by the operator into `*address`. Result: false after the error "Invalid WHAT
/// 'WORD'" when it is none, or is 0.0.0.0 or 255.255.255.255.
bool net_parse_ip(const char* word, const char* what, uint32_t* address);
