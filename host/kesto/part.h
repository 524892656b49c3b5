// The parts that an image is made of, as the command line names and describes them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// A contents type with an option of its own.
struct part_option {
  const char* name;     // "--NAME FILE"
  uint32_t type;        // image_contents
  const char* purpose;  // what the file holds
};

/// One for every contents type that the device takes, in the order of the types.
constexpr int part_option_count = 10;
extern const part_option part_options[part_option_count];

/// What the header of a part says besides what follows from its contents.
struct part_traits {
  uint8_t version[6] = {};       // all zero = none
  uint8_t product_code[2] = {};  // zero = none
  uint32_t rootfs_size_kib = 0;  // both only in root file system parts, 0 = the device's default
  uint32_t total_size_kib = 0;
};

/// Bytes of a header that none of the traits can say, such as reserved ones.
struct header_bytes {
  uint32_t offset;
  std::vector<uint8_t> bytes;
};

/// One part of an image that is to be built.
struct part_order {
  uint32_t type = 0;  // image_contents
  std::string path;   // of the contents
  part_traits traits;
  std::vector<header_bytes> more_bytes;  // laid over what follows from all others
  bool is_empty = false;                 // there are no contents, and no file
};

/// Result: true with `*type` set when `text` is the name of an option, a name of contents_type_names or a
/// number below image_contents_count.
bool part_type_from_text(const char* text, uint32_t* type);

/// Each reads one trait, "none" being the empty one. Result: false when `text` does not have the form
/// A.B.C.DxN (a letter between numbers up to 255), or is not two printable characters.
bool part_version_from_text(const char* text, part_traits* traits);
bool part_product_code_from_text(const char* text, part_traits* traits);

/// Reads a decimal number of 32 bits, digits only. Result: false when `text` is none.
bool part_size_from_text(const char* text, uint32_t* size);

/// Result: true for the types that become a root file system.
bool part_is_rootfs(uint32_t type);

/// Result: true when every device has a place for contents of this type, or those devices that have the erase
/// blocks that a UBIFS image was made for; else false, after the device's error if it has words for it.
bool part_has_destination(uint32_t type);

/// Result: the name of the type on the device, "unknown" for none.
const char* part_type_name(uint32_t type);

/// Result: the name of the option for this type, null when it has none.
const char* part_short_name(uint32_t type);

/// Fills the 256 bytes of `header` for `length` bytes of contents with `checksum`; `more` when another part
/// follows. Reserved bytes are zero where the order says nothing of them.
void part_compose_header(uint8_t* header, const part_order& order, uint32_t length, uint32_t checksum,
                         bool more);

/// Result: true when an order may set this byte of the header; the others follow from the contents, or no
/// device takes anything else in them.
bool part_header_byte_is_free(uint32_t offset);

/// Result: the order that the part with this valid header was built from, but for the path. Composing a
/// header of it gives the same bytes. `more` as above.
part_order part_order_of_header(const uint8_t* header, bool more);
