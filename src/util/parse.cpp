// Acceptance rules of numbers and of IPv4 and MAC addresses.
#include "util/parse.h"

#include <arpa/inet.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

int hex_digit(char digit) {
  const int code = static_cast<unsigned char>(digit);
  if (!isxdigit(code)) {
    return -1;
  }
  return code < 'A' ? code - '0' : toupper(code) - 55;
}

constexpr unsigned mac_length = 6;

}  // namespace

int strhextou8(const char* text) {
  const int high = hex_digit(text[0]);
  if (high < 0) {
    return -1;
  }
  const int low = hex_digit(text[1]);
  return low < 0 ? -1 : high * 16 + low;
}

uint32_t strtou32(const char* text, char** end, int base) {
  errno = 0;
  const unsigned long long value = strtoull(text, end, base);
  if (errno == ERANGE) {
    return UINT32_MAX;
  }
  // A negative number arrives wrapped around 2^64; its magnitude decides whether 32 bits can hold it.
  const bool negative = text[strspn(text, " \t\n\v\f\r")] == '-';
  if ((negative ? 0 - value : value) > UINT32_MAX) {
    errno = ERANGE;
    return UINT32_MAX;
  }
  return static_cast<uint32_t>(value);
}

bool strdectoul(const char* text, uint32_t* out) {
  char* end = nullptr;
  *out = strtou32(text, &end, 10);
  return end != text && *end == '\0';
}

uint32_t ipaddr4_strtoul(const char* text) {
  if (text == nullptr) {
    return 0;
  }
  const size_t length = strlen(text);
  if (length < 7 || length > 15 || strspn(text, "0123456789.") != length) {
    return 0;
  }
  unsigned octet[4];
  // NOLINTNEXTLINE(cert-err34-c): at most 12 digits in a text of 15; each number is range-checked below
  if (sscanf(text, "%u.%u.%u.%u", &octet[0], &octet[1], &octet[2], &octet[3]) != 4) {
    return 0;
  }
  uint32_t address = 0;
  for (const unsigned number : octet) {
    if (number > 255) {
      return 0;
    }
    address = address << 8 | number;
  }
  return htonl(address);
}

bool macaddr_hextou8(const char* text, uint8_t* out) {
  if (strlen(text) != 3 * mac_length - 1) {
    return false;
  }
  for (unsigned i = 0; i < mac_length; ++i) {
    const int value = strhextou8(text + size_t{3} * i);
    if (value < 0) {
      return false;
    }
    out[i] = static_cast<uint8_t>(value);
  }
  for (unsigned i = 2; i < 3 * mac_length - 1; i += 3) {
    if (text[i] != ':' && text[i] != '-') {
      return false;
    }
  }
  return mac_address_is_valid(out);
}

bool mac_address_is_valid(const uint8_t* mac) {
  if (mac == nullptr || (mac[0] & 1) != 0) {
    return false;
  }
  for (unsigned i = 0; i < mac_length; ++i) {
    if (mac[i] != 0) {
      return true;
    }
  }
  return false;
}
