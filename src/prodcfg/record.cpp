// Path: the node of the partition, read in one piece of the greatest length that a record may have.
#include "prodcfg/record.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "mtd/partition_table.h"
#include "util/heap_buffer.h"
#include "util/log.h"
#include "util/unique_fd.h"

product_config g_product_config;
bool g_product_config_avail = false;

namespace {

constexpr unsigned record_header_size = 4;
constexpr unsigned item_header_size = 3;
constexpr unsigned longest_record = 1024;

constexpr size_t not_kept = SIZE_MAX;

// Where an item goes.
struct item_type {
  uint8_t type;
  uint16_t shortest;
  uint16_t longest;
  size_t field;         // offset in product_config
  size_t field_size;    // bytes
  size_t length_field;  // offset of the item's length in product_config, or not_kept
};

// clang-format off
constexpr item_type item_types[] = {
  // type min max field                                 field size                          length
  {  1,   6,  6,  offsetof(product_config, mac[0]),      sizeof(product_config::mac[0]),      not_kept},
  {  2,   6,  6,  offsetof(product_config, mac[1]),      sizeof(product_config::mac[1]),      not_kept},
  {  3,   0, 63,  offsetof(product_config, text),        sizeof(product_config::text),        not_kept},
  {  4,   0, 64,  offsetof(product_config, value),       sizeof(product_config::value),       offsetof(product_config, value_length)},
  {  5,   0, 64,  offsetof(product_config, hwcfg),       sizeof(product_config::hwcfg),       offsetof(product_config, hwcfg_length)},
  {  6,   0, 64,  offsetof(product_config, description), sizeof(product_config::description), not_kept},
  {  7,   6,  6,  offsetof(product_config, mac[2]),      sizeof(product_config::mac[2]),      not_kept},
  {  8,   6,  6,  offsetof(product_config, mac[3]),      sizeof(product_config::mac[3]),      not_kept},
  {  9,   6,  6,  offsetof(product_config, mac[4]),      sizeof(product_config::mac[4]),      not_kept},
  { 10,   6,  6,  offsetof(product_config, mac[5]),      sizeof(product_config::mac[5]),      not_kept},
  { 11,   0,  4,  offsetof(product_config, product_id),  sizeof(product_config::product_id),  offsetof(product_config, product_id_length)},
};
// clang-format on

constexpr bool items_fit_their_fields() {
  for (const item_type& item : item_types) {
    if (item.longest > item.field_size) {
      return false;
    }
  }
  return true;
}
static_assert(items_fit_their_fields());

unsigned get_u16(const uint8_t* at) {
  return at[0] | unsigned{at[1]} << 8;
}

uint16_t sum_of(const uint8_t* record, unsigned size) {
  unsigned sum = 0;
  for (unsigned at = 0; at + 1 < size; at += 2) {
    sum += get_u16(record + at);
  }
  if (size % 2 != 0) {
    sum += record[size - 1];
  }
  return static_cast<uint16_t>(sum);
}

// An item replaces one of its type before it, also where it is shorter.
void keep_item(const item_type& item, const uint8_t* value, unsigned length) {
  auto* config = reinterpret_cast<uint8_t*>(&g_product_config);
  memset(config + item.field, 0, item.field_size);
  memcpy(config + item.field, value, length);
  if (item.length_field != not_kept) {
    config[item.length_field] = static_cast<uint8_t>(length);
  }
}

const item_type* find_item_type(unsigned type) {
  for (const item_type& item : item_types) {
    if (item.type == type) {
      return &item;
    }
  }
  return nullptr;
}

// Result: false when an item runs past the end. Too few bytes for an item's header end the record.
bool tlv_parse_buffer(const uint8_t* at, unsigned remaining) {
  while (remaining >= item_header_size) {
    const unsigned type = at[0];
    const unsigned length = get_u16(at + 1);
    if (length > remaining - item_header_size) {
      log_printf(level_error, "%s: parse underrun\n", __func__);
      return false;
    }
    log_printf(level_verbose, "%s: found tlv type=%u length=%u(+%u)\n", __func__, type, length,
               item_header_size);
    const item_type* item = find_item_type(type);
    if (item == nullptr) {
      log_printf(level_info, "%s: skipping unrecognized tlv type=%u length=%u\n", __func__, type, length);
    } else if (length < item->shortest || length > item->longest) {
      log_printf(level_error, "%s: skipping invalid tlv type=%u length=%u\n", __func__, type, length);
    } else {
      keep_item(*item, at + item_header_size, length);
    }
    at += item_header_size + length;
    remaining -= item_header_size + length;
  }
  return true;
}

// Reads as much as a record may be long. Result: false after an error on behalf of `caller`.
bool read_flash(const char* caller, uint8_t* record) {
  const mtd_partition* row = mtd_get_by_image_and_bank(nullptr, mtd_image_product_config, mtd_bank_any);
  if (row == nullptr) {
    log_printf(level_error, "%s: Can't find mtd for product config\n", caller);
    return false;
  }
  const unique_fd device(open(row->dev_name, O_RDONLY | O_CLOEXEC));
  if (!device) {
    log_printf(level_error, "%s: open(%s) error(%s)\n", caller, row->dev_name, strerror(errno));
    return false;
  }
  errno = 0;
  const ssize_t got = read(device.get(), record, longest_record);
  if (got < 0) {
    log_printf(level_error, "%s: read(%i) error(%s)\n", caller, static_cast<int>(longest_record),
               strerror(errno));
    return false;
  }
  if (got != ssize_t{longest_record}) {
    log_printf(level_error, "%s: only %d/%d bytes read, error(%s)\n", caller, static_cast<int>(got),
               static_cast<int>(longest_record), strerror(errno));
    return false;
  }
  return true;
}

// Result: false after a message on behalf of `caller`.
bool check_record(const char* caller, const uint8_t* record) {
  const unsigned total_length = get_u16(record + 2);
  if (total_length < record_header_size || total_length > longest_record) {
    log_printf(level_info, "%s: invalid total length %u\n", caller, total_length);
    return false;
  }
  log_printf(level_verbose, "%s: total_length=%u\n", caller, total_length);
  g_product_config.checksum = static_cast<uint16_t>(get_u16(record));
  g_product_config.total_length = static_cast<uint16_t>(total_length);
  const unsigned sum = sum_of(record, total_length);
  if (sum != 0) {
    log_printf(level_info, "%s: checksum mismatch prog=0x%x calc=0x%x\n", caller,
               unsigned{g_product_config.checksum}, sum);
    return false;
  }
  return true;
}

bool get_text(product_text& text, const char* value, uint8_t length) {
  text[0] = '\0';
  if (length == product_item_absent) {
    return false;
  }
  memcpy(text, value, length);
  text[length] = '\0';
  return true;
}

}  // namespace

void prodcfg_init() {
  log_printf(level_trace, "%s:\n", __func__);
  prodcfg_reset();
  g_product_config_avail = prodcfg_read();
  if (!g_product_config_avail) {
    prodcfg_reset();
  }
}

void prodcfg_reset() {
  log_printf(level_trace, "%s:\n", __func__);
  g_product_config = {};
  g_product_config.value_length = product_item_absent;
  g_product_config.hwcfg_length = product_item_absent;
  g_product_config.product_id_length = product_item_absent;
}

bool prodcfg_read() {
  log_printf(level_trace, "%s:\n", __func__);
  const heap_buffer record(longest_record);
  if (!record) {
    log_printf(level_error, "%s: malloc(%i) error(%s)\n", __func__, static_cast<int>(longest_record),
               strerror(errno));
    return false;
  }
  if (!read_flash(__func__, record.data()) || !check_record(__func__, record.data())) {
    return false;
  }
  return tlv_parse_buffer(record.data() + record_header_size,
                          g_product_config.total_length - record_header_size);
}

bool prodcfg_get_product_id(product_text& text) {
  return get_text(text, g_product_config.product_id, g_product_config.product_id_length);
}

bool prodcfg_get_hwcfg(product_text& text) {
  return get_text(text, g_product_config.hwcfg, g_product_config.hwcfg_length);
}
