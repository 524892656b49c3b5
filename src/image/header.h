// The header in front of every part of a firmware image, and the kinds of contents. The host tools build
// and check images with this same code. docs/image-format.md shows the layout.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mtd/partition_table.h"
#include "util/stream.h"

constexpr const char image_header_id[8] = "KESTO-1";

/// Byte offsets of the header's fields; numbers are 32-bit big-endian. Bytes in between are reserved.
enum image_header_fields : uint32_t {
  image_field_id = 0,                        // 8 bytes, "KESTO-1" and NUL
  image_field_header_type = 8,               // 0
  image_field_header_length = 12,            // 256
  image_field_header_checksum = 16,          // over the header with this field zero
  image_field_contents_type = 24,            // image_contents
  image_field_contents_mangle_type = 28,     // 0: stored as they are
  image_field_contents_version = 32,         // 6 bytes
  image_field_product_code = 38,             // 2 characters
  image_field_contents_length = 40,          // bytes behind the header
  image_field_contents_final_length = 44,    // the same
  image_field_contents_checksum = 52,        // over the contents
  image_field_contents_final_checksum = 92,  // the same
  image_field_contents_passcode_type = 132,  // 0
  image_field_next_header_flag = 200,        // non-zero when another part follows
  image_field_rootfs_size_kib = 204,         // wanted size of the root file system volume, 0 = default
  image_field_total_size_kib = 212,          // wanted size of the UBI partition, 0 = default
};

enum image_contents : uint32_t {
  image_contents_invalid,
  image_contents_bootstrap,
  image_contents_bootloader,
  image_contents_boot_env,
  image_contents_kernel,
  image_contents_rootfs_jffs2_or_ext2,
  image_contents_production_loader,
  image_contents_recovery_loader,
  image_contents_config_loader,
  image_contents_reserved,
  image_contents_rootfs_ubifs_16keb,
  image_contents_oem_defaults,
  image_contents_rootfs_tar_lzma,
  image_contents_rootfs_ubifs_128keb,
  image_contents_python_setup,
  image_contents_count,
};

/// Names indexed by contents type.
extern const char* const contents_type_names[image_contents_count];

/// Result: the name of a contents type, "unknown" for one that has none.
const char* image_contents_name(uint32_t contents_type);

/// Reads or writes the number at a field.
uint32_t image_header_get(const uint8_t* header, image_header_fields field);
void image_header_set(uint8_t* header, image_header_fields field, uint32_t value);

/// Result: the checksum of the header's 256 bytes with its checksum field taken as zero. The field is zeroed
/// during the computation and restored.
uint32_t image_header_checksum(uint8_t* header);

/// Checks a header of `length` available bytes. Result: true, or false with the words for its first fault in
/// `text` of `size` bytes. Logs nothing. `header` must be writable and is left as it was.
bool image_header_is_valid(uint8_t* header, uint32_t length, char* text, size_t size);

/// The same with a log. Result: true, or false after the first fault's error, which
/// is held back when `quiet` and the verbosity is below VERBOSE. The checksum of the contents is not looked
/// at.
bool image_header_verify(uint8_t* header, uint32_t length, bool quiet);

/// Prints the header's summary. Result: true when its contents have a destination on this device, else false
/// after an error.
bool image_print_info(const uint8_t* header);

/// `field`: the two bytes of the product code. Result: true with the text in `buffer` of `size` bytes, or
/// false when a byte is not printable.
bool image_get_product_code_string(const uint8_t* field, char* buffer, size_t size);

/// `field`: the six bytes of the version. Result: true with the text ("3.1.0.0R1") in `buffer` of `size`
/// bytes, or false when all bytes are zero.
bool image_get_version_string(const uint8_t* field, char* buffer, size_t size);

/// Result: the contents type that belongs to a kind of partition (mtd_images), 0 when none does.
uint32_t mtd_image_type_to_image_contents_type(int image);

/// Result: the kind of partition (mtd_images) that a contents type goes to, mtd_image_none when none does.
mtd_images image_contents_type_to_mtd_image_type(uint32_t contents_type);

/// Result: true when there are partitions for contents of this type on this device, in whatever bank.
bool image_contents_has_destination(uint32_t contents_type);
