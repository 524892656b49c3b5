// Numbers and addresses as the commands accept them, quirks included.
#pragma once

#include <cstdint>

/// Result: the byte 0..255 of the two hexadecimal digits that `text` (at least two characters) begins with,
/// or -1 when they are none.
int strhextou8(const char* text);

/// The conversion of strtoul() with the device's 32-bit long on every build: white space and a sign are
/// accepted, a negative number wraps, what does not fit gives 4294967295 with errno ERANGE.
uint32_t strtou32(const char* text, char** end, int base);

/// Converts a decimal number into `*out`, which is set in every case. Result: true when the whole text was a
/// number.
bool strdectoul(const char* text, uint32_t* out);

/// Result: the IPv4 address in network byte order (first number in the first byte in memory), or 0 when
/// `text` is null or not accepted; 0.0.0.0 is therefore never accepted. Text after four numbers is ignored.
uint32_t ipaddr4_strtoul(const char* text);

/// Reads six bytes separated by ':' or '-' into `out`, which may be partly written on failure. Result: true
/// when the text has that form and mac_address_is_valid() holds.
bool macaddr_hextou8(const char* text, uint8_t* out);

/// Result: true for an individual, non-zero address of 6 bytes (IEEE 802 group bit clear), false for null.
bool mac_address_is_valid(const uint8_t* mac);
