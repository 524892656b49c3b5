// What a device would do with an image, by the device's own rules and without one.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kesto/device_record.h"
#include "kesto/image_file.h"
#include "mtd/partition_table.h"

/// Ways of installing; they may be combined.
enum image_ways : unsigned {
  image_way_serial = 1,
  image_way_network = 2,
  image_way_any = image_way_serial | image_way_network,
};

enum class image_check_severity {
  refused,   // the device ends with FAILURE
  danger,    // the device would report success, and it would not be good; or something needed is lost
  possible,  // one of these, if the device is as nothing in its record excludes
  note,
};

/// Names indexed by severity.
extern const char* const image_check_severity_names[4];

/// The names of findings: stable, one word. docs/kesto-json.md tells what they mean.
struct image_check_finding {
  const char* name;
  image_check_severity severity;
  int part;       // its number, -1 = the whole image
  unsigned ways;  // image_ways that it holds for
  std::string text;
};

struct image_check_part {
  image_part part;
  const mtd_partition* destination = nullptr;  // null = none
  bool is_volume = false;
  uint64_t written = 0;  // bytes that go there
  std::optional<uint64_t> room;
  std::optional<bool> fits;
  uint32_t erase_block = 0;  // that the part was made for, 0 = any
  unsigned erased_ways = 0;  // ways that erase the destination before
};

struct image_check_report {
  std::vector<image_check_part> parts;
  std::vector<image_check_finding> findings;
  std::optional<bool> formats;                                   // the UBI partition
  std::vector<std::pair<std::string, std::string>> environment;  // set after the last part

  /// Result: true when there is neither a `refused` nor a `danger`.
  bool good() const;
};

/// Judges an image of valid, whole `parts` that is to be installed for `bank` (1, 2 or single) in one of
/// `ways`. `device` is what is known of the device, null = nothing. Logs nothing.
image_check_report image_check(const std::vector<image_part>& parts, mtd_banks bank, unsigned ways,
                               const device_record* device);
