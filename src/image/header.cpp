// Reading and checking headers.
#include "image/header.h"

#include <cstdio>
#include <cstring>

#include "util/checksum.h"
#include "util/log.h"
#include "util/printable.h"

const char* const contents_type_names[image_contents_count] = {
    "invalid",
    "bootstrap",
    "bootloader",
    "boot_env",
    "firmware_kernel",
    "firmware_rootfs_jffs2_or_ext2",
    "production_loader",
    "recovery_loader",
    "config_loader",
    "reserved",
    "firmware_rootfs_ubifs_16keb",
    "oem_defaults",
    "firmware_rootfs_tar_lzma",
    "firmware_rootfs_ubifs_128keb",
    "python_setup",
};

namespace {

// Where each contents type goes, indexed by contents type.
constexpr mtd_images destinations[image_contents_count] = {
    mtd_image_none,           // invalid
    mtd_image_bootstrap,      // bootstrap
    mtd_image_bootloader,     // bootloader
    mtd_image_boot_env,       // boot_env
    mtd_image_kernel,         // firmware_kernel
    mtd_image_rootfs,         // firmware_rootfs_jffs2_or_ext2
    mtd_image_none,           // production_loader
    mtd_image_none,           // recovery_loader
    mtd_image_config_loader,  // config_loader
    mtd_image_none,           // reserved
    mtd_image_rootfs,         // firmware_rootfs_ubifs_16keb
    mtd_image_privatefs,      // oem_defaults
    mtd_image_rootfs,         // firmware_rootfs_tar_lzma
    mtd_image_rootfs,         // firmware_rootfs_ubifs_128keb
    mtd_image_userfs,         // python_setup
};

// The first fault of a header but for its checksum, or null. The texts are what the user reads.
const char* find_fault(const uint8_t* header) {
  const auto get = [header](image_header_fields field) { return image_header_get(header, field); };
  if (strncmp(reinterpret_cast<const char*>(header), image_header_id, sizeof image_header_id) != 0) {
    return "bad Header ID in header";
  }
  if (get(image_field_header_type) != 0) return "bad HeaderType in header";
  if (get(image_field_header_length) != image_header_size) return "bad HeaderLength in header";
  if (get(image_field_contents_mangle_type) != 0) return "bad ContentsMangleType in header";
  if (get(image_field_contents_length) != get(image_field_contents_final_length)) {
    return "ContentsLength/ContentsFinalLength mismatch";
  }
  if (get(image_field_contents_passcode_type) != 0) return "bad ContentsPasscodeType";
  if (get(image_field_contents_checksum) != get(image_field_contents_final_checksum)) {
    return "image_header_verify: ContentsChecksum32/ContentsFinalChecksum32 mismatch";
  }
  return nullptr;
}

bool is_printable(uint8_t byte) {
  return byte >= 0x20 && byte < 0x7F;
}

}  // namespace

const char* image_contents_name(uint32_t contents_type) {
  return contents_type < image_contents_count ? contents_type_names[contents_type] : "unknown";
}

uint32_t image_header_get(const uint8_t* header, image_header_fields field) {
  const uint8_t* bytes = header + field;
  return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

void image_header_set(uint8_t* header, image_header_fields field, uint32_t value) {
  for (int i = 0; i < 4; ++i) {
    header[static_cast<uint32_t>(field) + static_cast<uint32_t>(i)] =
        static_cast<uint8_t>(value >> (24 - 8 * i));
  }
}

uint32_t image_header_checksum(uint8_t* header) {
  const uint32_t stored = image_header_get(header, image_field_header_checksum);
  image_header_set(header, image_field_header_checksum, 0);
  const uint32_t checksum = image_checksum(header, image_header_size);
  image_header_set(header, image_field_header_checksum, stored);
  return checksum;
}

bool image_header_is_valid(uint8_t* header, uint32_t length, char* text, size_t size) {
  const char* fault = length < image_header_size ? "The size of the header buffer is too small to be valid!"
                                                 : find_fault(header);
  if (fault != nullptr) {
    snprintf(text, size, "%s", fault);
    return false;
  }
  const uint32_t stored = image_header_get(header, image_field_header_checksum);
  const uint32_t calculated = image_header_checksum(header);
  if (stored != calculated) {
    // "Expected" has always been shown in the order of the device's memory.
    snprintf(text, size, "Header Checksum failed! Expected 0x%x and calculated 0x%x",
             __builtin_bswap32(stored), calculated);
    return false;
  }
  return true;
}

bool image_header_verify(uint8_t* header, uint32_t length, bool quiet) {
  char fault[96];
  if (image_header_is_valid(header, length, fault, sizeof fault)) {
    return true;
  }
  if (!quiet || log_level >= level_verbose) {
    log_printf(level_error, "%s\n", fault);
  }
  return false;
}

bool image_print_info(const uint8_t* header) {
  const uint32_t type = image_header_get(header, image_field_contents_type);
  const uint32_t length = image_header_get(header, image_field_contents_length);
  char version[32];
  char code[4];
  log_printf(level_plain, "Image info:\n");
  log_printf(level_plain, "  Contents Type: %s (%i)\n", image_contents_name(type), static_cast<int>(type));
  log_printf(level_plain, "  Contents Length: 0x%X (%i)\n", length, static_cast<int>(length));
  log_printf(level_plain, "  Contents Checksum: 0x%08X\n",
             image_header_get(header, image_field_contents_checksum));
  const bool has_version =
      image_get_version_string(header + image_field_contents_version, version, sizeof version);
  log_printf(level_plain, "  Contents Version: %s\n", has_version ? printable<31>(version).text() : "none");
  const bool has_code = image_get_product_code_string(header + image_field_product_code, code, sizeof code);
  log_printf(level_plain, "  Product Code: %s\n", has_code ? code : "none");
  if (!image_contents_has_destination(type)) {
    log_printf(level_error, "Contents Type %i not supported\n", static_cast<int>(type));
    return false;
  }
  return true;
}

bool image_get_product_code_string(const uint8_t* field, char* buffer, size_t size) {
  if (!is_printable(field[0]) || !is_printable(field[1])) {
    return false;
  }
  snprintf(buffer, size, "%c%c", field[0], field[1]);
  return true;
}

bool image_get_version_string(const uint8_t* field, char* buffer, size_t size) {
  constexpr uint8_t none[6] = {};
  if (memcmp(field, none, sizeof none) == 0) {
    return false;
  }
  snprintf(buffer, size, "%d.%d.%d.%d%c%d", field[0], field[1], field[2], field[3], field[4], field[5]);
  return true;
}

uint32_t mtd_image_type_to_image_contents_type(int image) {
  switch (image) {
    case mtd_image_bootstrap:
      return image_contents_bootstrap;
    case mtd_image_bootloader:
      return image_contents_bootloader;
    case mtd_image_boot_env:
      return image_contents_boot_env;
    case mtd_image_kernel:
      return image_contents_kernel;
    case mtd_image_rootfs:
      return image_contents_rootfs_ubifs_16keb;
    case mtd_image_config_loader:
      return image_contents_config_loader;
    default:
      return image_contents_invalid;
  }
}

mtd_images image_contents_type_to_mtd_image_type(uint32_t contents_type) {
  return contents_type < image_contents_count ? destinations[contents_type] : mtd_image_none;
}

bool image_contents_has_destination(uint32_t contents_type) {
  const mtd_images image = image_contents_type_to_mtd_image_type(contents_type);
  return image != mtd_image_none && mtd_get_by_image_and_bank(nullptr, image, mtd_bank_any) != nullptr;
}
