// kesto show: a device on one page.
#include <fmt/format.h>
#include <fmt/ostream.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "device/cancel.h"
#include "kesto/device_json.h"
#include "kesto/device_options.h"
#include "kesto/flash_picture.h"
#include "kesto/report.h"
#include "kesto/subcommand.h"

namespace {

struct show_options : device_options {
  std::string picture;
};

std::string shown(const std::string& text, const char* otherwise = "-") {
  return text.empty() ? otherwise : text;
}

std::string value(const std::map<std::string, std::string>& values, const std::string& key) {
  const auto found = values.find(key);
  return found == values.end() ? "-" : shown(found->second);
}

std::string size_text(const std::optional<uint64_t>& bytes) {
  if (!bytes) {
    return "-";
  }
  return *bytes % (1 << 20) == 0 ? fmt::format("{} MiB", *bytes >> 20)
         : *bytes % 1024 == 0    ? fmt::format("{} KiB", *bytes >> 10)
                                 : fmt::format("{} bytes", *bytes);
}

void print_page(const device_state& state) {
  fmt::print("Shell      {}\n", shown(state.shell_version));
  fmt::print("Product    {}, hardware {}\n", shown(state.product_id, "no product record"),
             shown(state.hardware_configuration));
  fmt::print("Board      {}, I/O {}, {} serial ports\n", shown(state.board), shown(state.io),
             state.serial_ports);
  fmt::print("MAC        {}{}\n", state.mac_addresses.empty() ? "-" : state.mac_addresses[0],
             state.oem_mac_address.empty() ? "" : fmt::format(", set by OEM: {}", state.oem_mac_address));
  fmt::print("OEM file   {}\n", state.oem_defaults_size
                                    ? fmt::format("present, {} bytes", *state.oem_defaults_size)
                                    : "not present");
  fmt::print("Console    {} {} bps {} {}, termination {}\n", value(state.console, "device"),
             value(state.console, "speed"), value(state.console, "mode"), value(state.console, "flow"),
             value(state.console, "term"));
  fmt::print("Network    {} {}, {} {} gateway {}, {}, link {} {}\n", value(state.network, "interface"),
             value(state.network, "state"), value(state.network, "ip addr"), value(state.network, "netmask"),
             value(state.network, "gateway"), value(state.network, "hw addr"),
             value(state.network, "link mode"), value(state.network, "link state"));
  fmt::print("\nBanks\n");
  for (const char* bank : {"1", "2", "single"}) {
    const flash_row* kernel = state.row(std::string("kernel_") + bank);
    const flash_row* rootfs = state.row(std::string("rootfs_") + bank);
    const auto contents = [](const flash_row* row) {
      return row == nullptr || row->status.empty() ? std::string("not looked at")
             : row->version.empty()                ? row->status
                                                   : row->version + " " + shown(row->product_code, "");
    };
    fmt::print("  {:<7} {:<6} kernel {:<20} root file system {}\n", bank,
               state.active_bank() == bank ? "boots" : "", contents(kernel), contents(rootfs));
  }
  fmt::print("\nFlash\n  {:<15} {:<7} {:<10} {:<10} {:<9} {:<12} {:<3} {:<10} {}\n", "name", "device",
             "start", "size", "status", "version", "pc", "used", "crc");
  for (const flash_row& row : state.flash) {
    fmt::print("  {:<15} {:<7} {:<10} {:<10} {:<9} {:<12} {:<3} {:<10} {}\n", row.name, row.node,
               row.start ? fmt::format("{:#x}", *row.start) : "-", size_text(row.size), shown(row.status),
               shown(row.version), shown(row.product_code), row.used ? fmt::format("{:#x}", *row.used) : "-",
               row.checksum ? fmt::format("{:08x}", *row.checksum) : "-");
  }
  fmt::print("\nBoot environment{}\n",
             state.environment_is_default ? " (nothing stored, these are the defaults)" : "");
  for (const auto& [name, text] : state.environment) {
    fmt::print("  {}={}\n", name, text);
  }
}

void write_picture(const std::string& path, const device_state& state) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << flash_picture(state);
  file.close();
  if (!file) {
    throw device_failure(status_failed, fmt::format("{}: write error ({})", path, strerror(errno)));
  }
}

int run_show(const show_options& options) {
  try {
    cancel_take_signals();
    device_state state;
    {
      device_connection connection(options.ports[0], options);
      try {
        connection.shell.find_prompt(options.limit(), options.after_restart);
        state = device_read(connection.shell, options.limit());
      } catch (const device_failure& failure) {
        if (failure.status() == status_interrupted) {
          connection.shell.interrupt();
        }
        throw device_settle(connection, failure);
      }
    }
    if (!options.picture.empty()) {
      write_picture(options.picture, state);
    }
    if (options.json) {
      printf("%s\n", device_state_json(state)
                         .dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace)
                         .c_str());
    } else if (options.picture.empty()) {
      print_page(state);
    }
    return status_success;
  } catch (const device_failure& failure) {
    return device_report(failure);
  }
}

std::function<int()> declare_show(CLI::App& line) {
  const auto options = std::make_shared<show_options>();
  device_options_declare(line, *options, false);
  line.add_option("--svg", options->picture, "write a picture of the flash, to scale, into FILE")
      ->type_name("FILE")
      ->group("Picture");
  return [options] { return run_show(*options); };
}

}  // namespace

const subcommand device_show = {
    .name = "show",
    .arguments = "--port PORT [OPTIONS]",
    .purpose = "Show a device on one page",
    .text =
        "Product, flash, banks with their versions, boot environment, console and network, as the device's own "
        "commands\n"
        "tell them. Changes nothing. The analysis of the flash takes the device a while.\n",
    .declare = declare_show,
};
