// A record per device; what the device does not tell is null.
#include "kesto/device_json.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

using nlohmann::ordered_json;

ordered_json text_or_null(const std::string& text) {
  return text.empty() ? ordered_json(nullptr) : ordered_json(text);
}

template <typename Number>
ordered_json number_or_null(const std::optional<Number>& number) {
  return number ? ordered_json(*number) : ordered_json(nullptr);
}

ordered_json value_or_null(const std::map<std::string, std::string>& values, const std::string& key) {
  const auto found = values.find(key);
  return found == values.end() ? ordered_json(nullptr) : text_or_null(found->second);
}

ordered_json row_json(const flash_row& row) {
  const bool is_volume = row.is_volume();
  return {{"name", row.name},
          {"device", row.node},
          {"type", row.type},
          {"format_name", row.format},
          {"image", row.image},
          {"bank", text_or_null(row.bank)},
          {"protect", row.is_protected},
          {"t", row.t_flag},
          {"clean", row.is_cleaned},
          {"start", is_volume ? ordered_json(nullptr) : number_or_null(row.start)},
          {"size", is_volume ? ordered_json(nullptr) : number_or_null(row.size)},
          {"erase_block", is_volume ? ordered_json(nullptr) : number_or_null(row.erase_block)},
          {"status", text_or_null(row.status)},
          {"version", text_or_null(row.version)},
          {"code", text_or_null(row.product_code)},
          {"used", number_or_null(row.used)},
          {"crc", row.checksum ? ordered_json(fmt::format("{:08x}", *row.checksum)) : ordered_json(nullptr)}};
}

ordered_json ubi_json(const device_state& state) {
  if (state.ubi_is_clean()) {
    return nullptr;
  }
  ordered_json volumes = ordered_json::array();
  for (const flash_row& row : state.flash) {
    if (row.is_volume()) {
      const bool counts = row.size && state.leb_size && *state.leb_size != 0;
      volumes.push_back(
          {{"name", row.name},
           {"reserved_ebs", counts ? ordered_json(*row.size / *state.leb_size) : ordered_json(nullptr)},
           {"size", number_or_null(row.size)}});
    }
  }
  return {{"leb_size", number_or_null(state.leb_size)},
          {"total", nullptr},
          {"available", nullptr},
          {"volumes", volumes}};
}

ordered_json content_json(const device_state& state, const std::string& name) {
  const flash_row* row = state.row(name);
  if (row == nullptr || row->status.empty()) {
    return nullptr;
  }
  return {{"status", row->status},
          {"version", text_or_null(row->version)},
          {"code", text_or_null(row->product_code)}};
}

}  // namespace

nlohmann::ordered_json device_state_json(const device_state& state) {
  ordered_json flash = ordered_json::array();
  for (const flash_row& row : state.flash) {
    flash.push_back(row_json(row));
  }
  ordered_json banks = ordered_json::array();
  for (const char* bank : {"1", "2", "single"}) {
    banks.push_back({{"bank", bank},
                     {"active", state.active_bank() == bank},
                     {"kernel", content_json(state, std::string("kernel_") + bank)},
                     {"rootfs", content_json(state, std::string("rootfs_") + bank)}});
  }
  ordered_json environment = ordered_json::object();
  for (const char* name : {"bootbank", "bootcmd", "bootdelay", "mtdparts"}) {
    environment[name] = nullptr;
  }
  for (const auto& [name, value] : state.environment) {
    environment[name] = value;
  }
  ordered_json network = {{"interface", value_or_null(state.network, "interface")},
                          {"state", value_or_null(state.network, "state")},
                          {"hw_addr", value_or_null(state.network, "hw addr")},
                          {"ip_addr", value_or_null(state.network, "ip addr")},
                          {"netmask", value_or_null(state.network, "netmask")},
                          {"gateway", value_or_null(state.network, "gateway")},
                          {"link_mode", value_or_null(state.network, "link mode")},
                          {"link_state", value_or_null(state.network, "link state")}};
  ordered_json console = ordered_json::object();
  for (const char* key : {"device", "mode", "speed", "flow", "term"}) {
    console[key] = value_or_null(state.console, key);
  }
  return {{"format", 1},
          {"shell", text_or_null(state.shell_version)},
          {"product",
           {{"id", text_or_null(state.product_id)},
            {"hwcfg", text_or_null(state.hardware_configuration)},
            {"mac", state.mac_addresses},
            {"board", text_or_null(state.board)},
            {"io", text_or_null(state.io)},
            {"serial_ports", state.serial_ports},
            {"oem_mac", text_or_null(state.oem_mac_address)},
            {"oem_defaults_size", number_or_null(state.oem_defaults_size)}}},
          {"flash", flash},
          {"ubi", {{"ubi0", ubi_json(state)}}},
          {"banks", banks},
          {"bootenv", environment},
          {"bootenv_is_default", state.environment_is_default},
          {"console", console},
          {"network", network}};
}
