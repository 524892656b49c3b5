// The product configuration: what the factory wrote about this device into a flash partition of its own. The
// shell reads it once and never writes it.
//
// On flash, all numbers little-endian: checksum (16 bits), total length in bytes with these four (16 bits),
// then items without padding: type (8 bits), length (16 bits), value. The checksum makes the sum of all
// 16-bit words of the record, a last odd byte counting as one, zero modulo 65536.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr unsigned product_mac_count = 6;
/// A length that says that the record has no such item.
constexpr uint8_t product_item_absent = 255;

/// The record in memory.
struct product_config {
  char description[64];  // padded with zeroes, like all values; not terminated when full
  uint8_t mac[product_mac_count][6];
  char text[64];  // always terminated
  uint8_t value[64];
  uint8_t value_length;
  char hwcfg[64];
  uint8_t hwcfg_length;
  uint16_t checksum;      // as read
  uint16_t total_length;  // as read
  char product_id[4];
  uint8_t product_id_length;
};
static_assert(offsetof(product_config, mac) == 64 && offsetof(product_config, text) == 100);
static_assert(offsetof(product_config, value_length) == 228 && offsetof(product_config, hwcfg_length) == 293);
static_assert(offsetof(product_config, checksum) == 294 && offsetof(product_config, product_id) == 298);
static_assert(offsetof(product_config, product_id_length) == 302 && sizeof(product_config) == 304);

extern product_config g_product_config;
/// Whether the record was read and accepted. While it is not, `g_product_config` is as after a reset.
extern bool g_product_config_avail;

/// Start-up: reads the record. What an empty partition leads to is logged as an info, other failures as
/// errors.
void prodcfg_init();
/// Makes `g_product_config` a record without items.
void prodcfg_reset();
/// Reads, checks and parses the record into `g_product_config`. Result: true, or false after an error; the
/// items in front of it are then there already.
bool prodcfg_read();

/// An item as text.
using product_text = char[65];
/// Each stores the item, up to the first zero byte in it. Result: false, with an empty text, when the record
/// has none.
bool prodcfg_get_product_id(product_text& text);
bool prodcfg_get_hwcfg(product_text& text);
