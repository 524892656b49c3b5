// Contents types, versions and product codes as text, and the header made of them.
#include "kesto/part.h"

#include <cctype>
#include <charconv>
#include <cstring>

#include "image/destination.h"
#include "image/header.h"
#include "mtd/partition_table.h"

const part_option part_options[part_option_count] = {
    {"bootstrap", image_contents_bootstrap, "first stage loader"},
    {"bootloader", image_contents_bootloader, "boot loader"},
    {"boot-env", image_contents_boot_env, "boot environment, taken by a clean device only"},
    {"kernel", image_contents_kernel, "kernel"},
    {"config-loader", image_contents_config_loader, "config loader"},
    {"rootfs-ubifs-16k", image_contents_rootfs_ubifs_16keb,
     "root file system, UBIFS for erase blocks of 16 KiB"},
    {"oem-defaults", image_contents_oem_defaults, "OEM defaults"},
    {"rootfs-tar", image_contents_rootfs_tar_lzma, "root file system, tar compressed with LZMA"},
    {"rootfs-ubifs-128k", image_contents_rootfs_ubifs_128keb,
     "root file system, UBIFS for erase blocks of 128 KiB"},
    {"python", image_contents_python_setup, "Python set-up, tar compressed with LZMA"},
};

namespace {

// Reads a number of at most the type's range at `text`. Result: behind its last digit, null when there is
// none.
template <typename Number>
const char* take_number(const char* text, Number* number) {
  const auto result = std::from_chars(text, text + strlen(text), *number);
  return result.ec == std::errc() ? result.ptr : nullptr;
}

bool is_none(const char* text) {
  return strcmp(text, "none") == 0;
}

}  // namespace

bool part_type_from_text(const char* text, uint32_t* type) {
  for (const part_option& row : part_options) {
    if (strcmp(text, row.name) == 0) {
      *type = row.type;
      return true;
    }
  }
  for (uint32_t i = 0; i < image_contents_count; ++i) {
    if (strcmp(text, contents_type_names[i]) == 0) {
      *type = i;
      return true;
    }
  }
  return part_size_from_text(text, type) && *type < image_contents_count;
}

bool part_version_from_text(const char* text, part_traits* traits) {
  uint8_t version[6] = {};
  if (!is_none(text)) {
    for (int i = 0; i < 4; ++i) {
      text = take_number(text, &version[i]);
      if (text == nullptr || (i < 3 && *text++ != '.')) {
        return false;
      }
    }
    version[4] = static_cast<uint8_t>(*text);
    if (isalpha(version[4]) == 0) {
      return false;
    }
    text = take_number(text + 1, &version[5]);
    if (text == nullptr || *text != '\0') {
      return false;
    }
  }
  memcpy(traits->version, version, sizeof version);
  return true;
}

bool part_product_code_from_text(const char* text, part_traits* traits) {
  if (is_none(text)) {
    memset(traits->product_code, 0, sizeof traits->product_code);
    return true;
  }
  char shown[4];
  const auto* code = reinterpret_cast<const uint8_t*>(text);
  if (strlen(text) != sizeof traits->product_code ||
      !image_get_product_code_string(code, shown, sizeof shown)) {
    return false;
  }
  memcpy(traits->product_code, code, sizeof traits->product_code);
  return true;
}

bool part_size_from_text(const char* text, uint32_t* size) {
  const char* end = take_number(text, size);
  return end != nullptr && *end == '\0';
}

bool part_is_rootfs(uint32_t type) {
  return image_contents_type_to_mtd_image_type(type) == mtd_image_rootfs;
}

bool part_has_destination(uint32_t type) {
  if (!image_contents_has_destination(type)) {
    return false;
  }
  // For these the device looks at the erase blocks of its UBI partition, which are not to be seen here.
  if (type == image_contents_rootfs_ubifs_16keb || type == image_contents_rootfs_ubifs_128keb) {
    return true;
  }
  return image_validate_destination(type);
}

const char* part_type_name(uint32_t type) {
  return type < image_contents_count ? contents_type_names[type] : "unknown";
}

const char* part_short_name(uint32_t type) {
  for (const part_option& row : part_options) {
    if (row.type == type) {
      return row.name;
    }
  }
  return nullptr;
}

void part_compose_header(uint8_t* header, const part_order& order, uint32_t length, uint32_t checksum,
                         bool more) {
  const part_traits& traits = order.traits;
  memset(header, 0, image_header_size);
  memcpy(header + image_field_id, image_header_id, sizeof image_header_id);
  memcpy(header + image_field_contents_version, traits.version, sizeof traits.version);
  memcpy(header + image_field_product_code, traits.product_code, sizeof traits.product_code);
  image_header_set(header, image_field_header_length, image_header_size);
  image_header_set(header, image_field_contents_type, order.type);
  image_header_set(header, image_field_contents_length, length);
  image_header_set(header, image_field_contents_final_length, length);
  image_header_set(header, image_field_contents_checksum, checksum);
  image_header_set(header, image_field_contents_final_checksum, checksum);
  image_header_set(header, image_field_next_header_flag, more ? 1 : 0);
  if (part_is_rootfs(order.type)) {
    image_header_set(header, image_field_rootfs_size_kib, traits.rootfs_size_kib);
    image_header_set(header, image_field_total_size_kib, traits.total_size_kib);
  }
  for (const header_bytes& piece : order.more_bytes) {
    memcpy(header + piece.offset, piece.bytes.data(), piece.bytes.size());
  }
  image_header_set(header, image_field_header_checksum, image_header_checksum(header));
}

bool part_header_byte_is_free(uint32_t offset) {
  if (offset >= image_header_size || offset < image_field_header_checksum + sizeof(uint32_t)) {
    return false;
  }
  for (const image_header_fields field :
       {image_field_contents_type, image_field_contents_mangle_type, image_field_contents_length,
        image_field_contents_final_length, image_field_contents_checksum, image_field_contents_final_checksum,
        image_field_contents_passcode_type}) {
    if (offset >= field && offset < field + sizeof(uint32_t)) {
      return false;
    }
  }
  return true;
}

part_order part_order_of_header(const uint8_t* header, bool more) {
  part_order order;
  order.type = image_header_get(header, image_field_contents_type);
  // Traits are taken as far as their texts give the same bytes again.
  if (char version[32];
      image_get_version_string(header + image_field_contents_version, version, sizeof version)) {
    part_version_from_text(version, &order.traits);
  }
  if (char code[4]; image_get_product_code_string(header + image_field_product_code, code, sizeof code)) {
    part_product_code_from_text(code, &order.traits);
  }
  if (part_is_rootfs(order.type)) {
    order.traits.rootfs_size_kib = image_header_get(header, image_field_rootfs_size_kib);
    order.traits.total_size_kib = image_header_get(header, image_field_total_size_kib);
  }
  uint8_t composed[image_header_size];
  part_compose_header(composed, order, image_header_get(header, image_field_contents_length),
                      image_header_get(header, image_field_contents_checksum), more);
  for (uint32_t offset = 0; offset < image_header_size; ++offset) {
    if (!part_header_byte_is_free(offset) || header[offset] == composed[offset]) {
      continue;
    }
    std::vector<header_bytes>& pieces = order.more_bytes;
    if (pieces.empty() || pieces.back().offset + pieces.back().bytes.size() != offset) {
      pieces.push_back({offset, {}});
    }
    pieces.back().bytes.push_back(header[offset]);
  }
  return order;
}
