// What a device says of itself, read from what its show commands print.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "device/shell_session.h"

/// A partition or a UBI volume: a row of `flash info` with that of `flash analyze` and what the kernel's log
/// and the boot environment say of its place.
struct flash_row {
  std::string name;
  std::string node;    // "mtd5", "ubi0_1"
  std::string type;    // "serial", "nand", "ubi0"
  std::string format;  // "uImage"
  std::string image;   // "kernel"
  std::string bank;    // "1", "2", "single", or nothing
  bool is_protected = false;
  bool is_cleaned = false;  // by `flash clean`
  bool t_flag = false;
  std::string status;  // "active", "inactive", "clean", "dirty", or nothing where the device does not look
  std::string version;
  std::string product_code;
  std::optional<uint64_t> used;  // bytes
  std::optional<uint32_t> checksum;
  std::optional<uint64_t> size;   // bytes; of a volume as far as it is known
  std::optional<uint64_t> start;  // bytes from the start of its chip
  std::optional<uint32_t> erase_block;

  bool is_volume() const { return node.starts_with("ubi"); }
};

struct device_state {
  std::string shell_version;
  bool has_product = false;
  std::string product_id;
  std::string hardware_configuration;
  std::vector<std::string> mac_addresses;
  std::string board;
  std::string io;
  unsigned serial_ports = 0;
  std::map<std::string, std::string> console;  // "device", "mode", "speed", "flow", "term"
  std::map<std::string, std::string>
      network;  // "state", "hw addr", "ip addr", ... as `network info` labels them
  std::map<std::string, std::string> environment;
  bool environment_is_default = false;  // nothing valid is stored
  std::string oem_mac_address;          // empty = not set
  std::optional<uint64_t> oem_defaults_size;
  std::vector<flash_row> flash;
  std::optional<uint32_t> leb_size;

  const flash_row* row(const std::string& name) const;
  /// Result: "1", "2" or "single"; "1" where the environment names none, as the shell takes it.
  std::string active_bank() const;
  bool ubi_is_clean() const;
};

/// Reads the device at its prompt. `says` is called with the name of each command before it runs; `limit`
/// holds for each, but four times as long for the analysis of the flash. Throws device_failure.
device_state device_read(shell_session& shell, milliseconds limit,
                         const std::function<void(const std::string&)>& says = {});

/// Only the analysis of the flash: renews what `flash analyze` says in the rows of `state`.
void device_read_flash(shell_session& shell, milliseconds limit, device_state& state);
