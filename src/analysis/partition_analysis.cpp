// Each kind of contents has its own analysis; what they have in common is reading in pieces.
#include "analysis/partition_analysis.h"

#include <fcntl.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "analysis/environment_search.h"
#include "analysis/jffs2_analysis.h"
#include "analysis/ubifs_analysis.h"
#include "flash/read.h"
#include "image/header.h"
#include "mtd/partition_table.h"
#include "prodcfg/record.h"
#include "util/checksum.h"
#include "util/log.h"
#include "util/unique_fd.h"

namespace {

constexpr size_t chunk_size = 1024;

unique_fd open_readable(const char* dev_name) {
  return unique_fd(open(dev_name, O_RDONLY | O_CLOEXEC));
}

// Hands `length` bytes from `offset` on to `take`, in pieces of at most 1024 bytes. Result: false after a
// read error.
template <typename Take>
bool read_pieces(const unique_fd& device, const char* dev_name, uint64_t offset, uint64_t length, Take take) {
  alignas(uint64_t) uint8_t piece[chunk_size];
  for (uint64_t done = 0; done < length;) {
    const auto size = static_cast<size_t>(std::min<uint64_t>(chunk_size, length - done));
    if (!flash_read_at(device.get(), dev_name, offset + done, piece, size)) {
      return false;
    }
    take(piece, size);
    done += size;
  }
  return true;
}

bool read_checksum(const unique_fd& device, const char* dev_name, uint64_t offset, uint64_t length,
                   uint32_t* checksum) {
  image_checksum_chunks_start();
  const bool complete = read_pieces(device, dev_name, offset, length, [](const uint8_t* piece, size_t size) {
    image_checksum_chunks_calc(piece, size);
  });
  *checksum = image_checksum_chunks_end();
  return complete;
}

// The first stage boot loader carries its size at byte 20, as the processor's ROM wants it, and its name
// at 60.
bool flash_analyze_bootstrap(const char* dev_name, flash_analysis* record) {
  log_printf(level_trace, "%s:\n", __func__);
  constexpr uint64_t size_offset = 20;
  constexpr uint64_t name_offset = 60;
  constexpr uint32_t smallest = 256;
  constexpr uint32_t largest = 16384;
  const unique_fd device = open_readable(dev_name);
  uint8_t word[4];
  if (!device || !flash_read_at(device.get(), dev_name, size_offset, word, sizeof word)) {
    return false;
  }
  const uint32_t size = word[0] | uint32_t{word[1]} << 8 | uint32_t{word[2]} << 16 | uint32_t{word[3]} << 24;
  if (size < smallest || size > largest) {
    return false;
  }
  char name[64];
  if (!flash_read_at(device.get(), dev_name, name_offset, name, sizeof name)) {
    return false;
  }
  name[sizeof name - 1] = '\0';
  char version[sizeof name];
  // NOLINTNEXTLINE(cert-err34-c): a text is scanned
  const bool named = sscanf(name, "Solvantra TK10 Bootstrap %63s", version) == 1;
  analysis_set_identity(record, named ? version : "-", "-");
  record->size = size;
  return read_checksum(device, dev_name, 0, size, &record->crc);
}

bool flash_analyze_prodcfg(flash_analysis* record) {
  log_printf(level_trace, "%s:\n", __func__);
  if (!g_product_config_avail) {
    return false;
  }
  char description[sizeof g_product_config.description + 1] = {};
  memcpy(description, g_product_config.description, sizeof g_product_config.description);
  const char* version = strstr(description, " v");
  record->size = g_product_config.total_length;
  record->crc = g_product_config.checksum;
  analysis_set_identity(record, version != nullptr ? version + 2 : "", "-");
  return true;
}

void take_identity(const uint8_t* header, flash_analysis* record) {
  char version[sizeof record->version];
  char code[sizeof record->code];
  const bool has_version =
      image_get_version_string(header + image_field_contents_version, version, sizeof version);
  const bool has_code = image_get_product_code_string(header + image_field_product_code, code, sizeof code);
  analysis_set_identity(record, has_version ? version : "-", has_code ? code : "-");
}

// Boot loader, kernel, config loader: an image header and what it describes.
bool flash_analyze_rom(const char* dev_name, int image, flash_analysis* record) {
  log_printf(level_trace, "%s:\n", __func__);
  const unique_fd device = open_readable(dev_name);
  uint8_t header[image_header_size];
  if (!device || read(device.get(), header, sizeof header) != static_cast<ssize_t>(sizeof header)) {
    log_printf(level_trace, "%s: read() header\n", __func__);
    return false;
  }
  if (!image_header_verify(header, sizeof header, true)) {
    log_printf(level_trace, "%s: image_header_verify()\n", __func__);
    return false;
  }
  if (image_header_get(header, image_field_contents_type) != mtd_image_type_to_image_contents_type(image)) {
    log_printf(level_trace, "%s: contents_type\n", __func__);
    return false;
  }
  const uint32_t length = image_header_get(header, image_field_contents_length);
  uint32_t checksum = 0;
  if (!read_checksum(device, dev_name, image_header_size, length, &checksum)) {
    return false;
  }
  if (checksum != image_header_get(header, image_field_contents_checksum)) {
    log_printf(level_trace, "%s: image_checksum()\n", __func__);
    return false;
  }
  record->size = length;
  record->crc = image_header_get(header, image_field_header_checksum);
  take_identity(header, record);
  return true;
}

bool flash_analyze_boot_env(const char* dev_name, flash_analysis* record) {
  log_printf(level_trace, "%s:\n", __func__);
  const unique_fd device = open_readable(dev_name);
  uint32_t size = 0;
  environment_search search;
  const auto take = [&search](const uint8_t* piece, size_t length) { search.add(piece, length); };
  if (!flash_query_size(device, &size) || !read_pieces(device, dev_name, 0, size, take) || !search.found()) {
    return false;
  }
  record->crc = search.crc();
  record->size = search.used();
  log_printf(level_verbose, "%s: max_size=%u, used_size=%u\n", __func__,
             static_cast<unsigned>(search.length()), static_cast<unsigned>(search.used()));
  analysis_set_identity(record, "-", "-");
  return true;
}

bool is_file_system(int image) {
  return image == mtd_image_rootfs || image == mtd_image_filesystem || image == mtd_image_privatefs ||
         image == mtd_image_userfs;
}

bool is_volume(int image, int format) {
  return is_file_system(image) && format == mtd_format_ubifs;
}

// Everything that is not a volume.
bool analyze_partition(const char* dev_name, int image, int format, flash_analysis* record) {
  if (is_file_system(image)) {
    return format == mtd_format_jffs2 && flash_analyze_jffs2(dev_name, record);
  }
  switch (image) {
    case mtd_image_bootstrap:
      return flash_analyze_bootstrap(dev_name, record);
    case mtd_image_product_config:
      return flash_analyze_prodcfg(record);
    case mtd_image_bootloader:
    case mtd_image_kernel:
    case mtd_image_config_loader:
      return flash_analyze_rom(dev_name, image, record);
    case mtd_image_boot_env:
      return flash_analyze_boot_env(dev_name, record);
    default:
      return false;
  }
}

}  // namespace

bool flash_analyze(const mtd_partition& row, flash_analysis* record) {
  *record = {};
  return is_volume(row.image, row.format) ? ubi_ubifs_analyze(row, record)
                                          : analyze_partition(row.dev_name, row.image, row.format, record);
}

bool flash_analyze(const char* dev_name, int image, int format, flash_analysis* record) {
  *record = {};
  return is_volume(image, format) ? ubi_ubifs_analyze(dev_name, record)
                                  : analyze_partition(dev_name, image, format, record);
}
