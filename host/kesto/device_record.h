// What is known of a device: its flash, its banks, its boot environment, as "kesto show --json" tells it.
// docs/kesto-json.md lists the keys. What is not known is empty.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "mtd/partition_table.h"

struct device_partition {
  std::string name;
  std::string status;  // "active", "inactive", "clean", "dirty"
  std::string version;
  std::string code;
  std::optional<uint64_t> size;
  std::optional<uint32_t> erase_block;
};

struct device_volume {
  std::string name;
  std::optional<uint64_t> reserved_ebs;  // logical erase blocks
  std::optional<uint64_t> size;          // bytes
};

struct device_record {
  std::vector<device_partition> flash;
  std::optional<uint64_t> leb_size;
  std::optional<uint64_t> available;  // logical erase blocks that no volume has
  std::vector<device_volume> volumes;
  mtd_banks active_bank = mtd_bank_none;

  /// Results: null when there is none of this name.
  const device_partition* partition(const char* name) const;
  const device_volume* volume(const char* name) const;
};

/// Result: the record in `document`, or nothing with what is wrong in `*fault`, as "flash[2].size: ...".
std::optional<device_record> device_record_from_json(const nlohmann::json& document, std::string* fault);

/// Reads the record in a file. Result: nothing after an error that names the file and the place.
std::optional<device_record> device_record_read(const char* path);
