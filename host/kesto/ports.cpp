// kesto ports: the serial ports of this computer, and behind which of them a shell waits at its prompt.
#include <fmt/format.h>
#include <libserialport.h>

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <thread>

#include "device/cancel.h"
#include "kesto/device_options.h"
#include "kesto/report.h"
#include "kesto/subcommand.h"

namespace {

using nlohmann::ordered_json;

struct found_port {
  std::string name;
  std::string description;
  bool has_shell = false;
  std::string state;  // "prompt of the shell", or why not
};

struct ports_options {
  device_options device;
  bool passive = false;
};

std::string text_of(const char* text) {
  return text == nullptr ? "" : text;
}

// A port without hardware behind it is listed by the kernel, too, and has nothing to tell.
std::vector<found_port> listed_ports() {
  sp_port** list = nullptr;
  if (sp_list_ports(&list) != SP_OK) {
    return {};
  }
  std::vector<found_port> ports;
  for (sp_port** row = list; *row != nullptr; ++row) {
    found_port port;
    port.name = text_of(sp_get_port_name(*row));
    port.description = text_of(sp_get_port_description(*row));
    ports.push_back(port);
  }
  sp_free_port_list(list);
  return ports;
}

void ask(found_port& port, const device_options& options) {
  try {
    device_connection connection(port.name, options);
    connection.shell.find_prompt(options.limit());
    port.has_shell = true;
    port.state = "prompt of the shell";
  } catch (const device_failure& failure) {
    const std::string text = failure.what();
    port.state = text.starts_with(port.name + ": ") ? text.substr(port.name.size() + 2) : text;
  }
}

void print(const std::vector<found_port>& ports, bool as_json) {
  if (as_json) {
    ordered_json record = {{"format", 1}, {"ports", ordered_json::array()}};
    for (const found_port& port : ports) {
      record["ports"].push_back({{"port", port.name},
                                 {"description", port.description},
                                 {"shell", port.has_shell},
                                 {"state", port.state}});
    }
    printf("%s\n", record.dump(2, ' ', false, ordered_json::error_handler_t::replace).c_str());
    return;
  }
  for (const found_port& port : ports) {
    printf("%-20s %s%s%s\n", port.name.c_str(), port.state.c_str(), port.description.empty() ? "" : "; ",
           port.description.c_str());
  }
  if (ports.empty()) {
    printf("no serial port\n");
  }
}

int run_ports(ports_options& options) {
  std::vector<found_port> ports = listed_ports();
  for (const std::string& name : options.device.ports) {
    const bool is_listed = std::any_of(ports.begin(), ports.end(),
                                       [&name](const found_port& port) { return port.name == name; });
    if (!is_listed) {
      ports.push_back({.name = name, .description = {}, .has_shell = false, .state = {}});
    }
  }
  cancel_take_signals();
  std::vector<std::thread> threads;
  for (found_port& port : ports) {
    if (options.passive) {
      port.state = "not asked";
    } else {
      threads.emplace_back([&port, &options] { ask(port, options.device); });
    }
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  if (cancel_requested()) {
    report_error("interrupted");
    return status_interrupted;
  }
  print(ports, options.device.json);
  return status_success;
}

std::function<int()> declare_ports(CLI::App& line) {
  const auto options = std::make_shared<ports_options>();
  options->device.limit_seconds = 5;
  line.add_option("--port", options->device.ports, "one more to look at: tcp:HOST:PORT, unix:PATH, ...")
      ->type_name("PORT")
      ->group("Options")
      ->allow_extra_args(false);
  line.add_option("--speed", options->device.settings.speed, "bits per second, 115200 unless given")
      ->type_name("BPS")
      ->group("Options");
  line.add_option("--limit", options->device.limit_seconds, "how long to wait for a prompt, 5 unless given")
      ->type_name("SECONDS")
      ->group("Options");
  line.add_flag("--list", options->passive, "only list them; nothing is typed into any")->group("Options");
  line.add_flag("--json", options->device.json, "for programs: see docs/kesto-json.md")->group("Options");
  return [options] { return run_ports(*options); };
}

}  // namespace

const subcommand device_ports = {
    .name = "ports",
    .arguments = "[OPTIONS]",
    .purpose = "List the serial ports, and which of them has a shell at its prompt",
    .text =
        "Types a few harmless keys into each port, unless --list is given: a device that is just being used\n"
        "by somebody else is not disturbed, as its port is in use.\n",
    .declare = declare_ports,
};
