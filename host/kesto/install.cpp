// kesto install: an image on one device, or on several at once.
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iostream>
#include <nlohmann/json.hpp>
#include <set>
#include <thread>

#include "device/cancel.h"
#include "kesto/installation.h"
#include "kesto/report.h"
#include "kesto/subcommand.h"

namespace {

using nlohmann::ordered_json;

constexpr size_t most_devices = 16;

bool may_try_again(int status) {
  return status == status_device_failed || status == status_no_prompt || status == status_line_lost ||
         status == status_restarted || status == status_server;
}

class production {
 public:
  production(const install_options& options, const verified_image& image, const tftp_server* server)
      : options_(options), image_(image), progress_(options.ports, options.json) {
    for (size_t i = 0; i < options.ports.size(); ++i) {
      devices_.push_back(std::make_unique<device_installation>(options, image, server, i, progress_));
    }
  }

  int run() {
    each(&device_installation::prepare);
    if (!agreed()) {
      for (const auto& device : devices_) {
        if (device->record().status == status_success) {
          fail(device->record(),
               device_failure(status_refused,
                              device->record().port + ": not agreed to erase; nothing was done"));
        }
      }
    }
    each(&device_installation::perform);
    for (unsigned i = 0; i < options_.retries && !cancel_requested(); ++i) {
      again();
    }
    progress_.leave();
    options_.json ? print_json() : print();
    return result();
  }

 private:
  static void fail(install_record& record, const device_failure& failure) {
    record.status = failure.status();
    record.message = failure.what();
  }

  // Runs an action for each device that is still good, all at once. A failure of one does not touch the
  // others.
  void each(void (device_installation::*action)()) {
    std::vector<std::thread> threads;
    for (const auto& device : devices_) {
      if (device->record().status == status_success) {
        threads.emplace_back([this, action, target = device.get()] { attempt(*target, action); });
      }
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
  }

  void attempt(device_installation& device, void (device_installation::*action)()) {
    install_record& record = device.record();
    const auto begin = clock_type::now();
    record.attempts += action == &device_installation::prepare ? 1 : 0;
    try {
      (device.*action)();
    } catch (const device_failure& failure) {
      fail(record, failure);
    } catch (const std::exception& error) {
      fail(record, device_failure(status_failed, fmt::format("{}: {}", record.port, error.what())));
    }
    if (record.status != status_success || action == &device_installation::perform) {
      device.close();
      progress_.state(index_of(device), record.status == status_success ? "done" : "failed");
    }
    record.seconds += std::chrono::duration<double>(clock_type::now() - begin).count();
  }

  size_t index_of(const device_installation& device) const {
    const auto found = std::find_if(devices_.begin(), devices_.end(),
                                    [&device](const auto& one) { return one.get() == &device; });
    return static_cast<size_t>(found - devices_.begin());
  }

  // Those that failed in a way that may pass, once more from the start. What was agreed to holds.
  void again() {
    std::vector<std::thread> threads;
    for (const auto& device : devices_) {
      if (may_try_again(device->record().status)) {
        device->record().status = status_success;
        device->record().message.clear();
        threads.emplace_back([this, target = device.get()] {
          attempt(*target, &device_installation::prepare);
          if (target->record().status == status_success) {
            attempt(*target, &device_installation::perform);
          }
        });
      }
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
  }

  bool agreed() {
    std::string what;
    for (const auto& device : devices_) {
      for (const std::string& erasure : device->erasures()) {
        if (device->record().status == status_success) {
          what += (what.empty() ? "" : ", ") + erasure;
        }
      }
    }
    if (what.empty() || options_.yes) {
      if (!what.empty()) {
        fmt::print(stderr, "Erasing {}\n", what);
      }
      return true;
    }
    progress_.leave();
    fmt::print(stderr, "This erases {}. Go on (y/N)? ", what);
    fflush(stderr);
    std::string answer;
    std::getline(std::cin, answer);
    return answer == "y" || answer == "Y" || answer == "yes";
  }

  int result() const {
    int worst = status_success;
    for (const auto& device : devices_) {
      const int status = device->record().status;
      worst = worst == status_success || status == status_interrupted
                  ? (status != status_success ? status : worst)
                  : worst;
    }
    return worst;
  }

  void print() const {
    if (devices_.size() == 1) {
      print_one(devices_[0]->record());
      return;
    }
    fmt::print("{:<28} {:<14} {:>5} {:>8} {:>10}  {}\n", "port", "result", "tries", "seconds", "KiB/s", "");
    for (const auto& device : devices_) {
      const install_record& record = device->record();
      fmt::print("{:<28} {:<14} {:>5} {:>8.1f} {:>10}  {}\n", record.port, device_status_name(record.status),
                 record.attempts, record.seconds, rate(record), record.message);
    }
  }

  static std::string rate(const install_record& record) {
    return record.send_seconds > 0 && record.bytes != 0
               ? fmt::format("{:.1f}", static_cast<double>(record.bytes) / record.send_seconds / 1024)
               : "-";
  }

  void print_one(const install_record& record) const {
    for (const image_check_finding& finding : record.findings) {
      fmt::print("{}: {}: {}\n", image_check_severity_names[static_cast<int>(finding.severity)], finding.name,
                 finding.text);
    }
    for (const std::string& remark : record.remarks) {
      fmt::print("device: {}\n", one_line(remark));
    }
    for (const std::string& checked : record.checked) {
      fmt::print("read back: {}\n", checked);
    }
    if (record.status == status_success) {
      fmt::print("{}: {} installed for bank {}, {} bytes in {:.1f} s ({} KiB/s){}\n", record.port,
                 options_.image, record.bank, record.bytes, record.send_seconds, rate(record),
                 record.booted.empty() ? "" : fmt::format("; up came: {}", record.booted));
    } else if (!record.message.empty()) {
      fflush(stdout);
      report_error("%s", record.message.c_str());
    }
  }

  void print_json() const {
    ordered_json list = ordered_json::array();
    for (const auto& device : devices_) {
      const install_record& record = device->record();
      ordered_json findings = ordered_json::array();
      for (const image_check_finding& finding : record.findings) {
        findings.push_back({{"name", finding.name},
                            {"severity", image_check_severity_names[static_cast<int>(finding.severity)]},
                            {"part", finding.part < 0 ? ordered_json(nullptr) : ordered_json(finding.part)},
                            {"text", finding.text}});
      }
      list.push_back(
          {{"port", record.port},
           {"result", device_status_name(record.status)},
           {"status", record.status},
           {"message", record.message},
           {"bank", record.bank},
           {"attempts", record.attempts},
           {"seconds", record.seconds},
           {"bytes", record.bytes},
           {"send_seconds", record.send_seconds},
           {"erased", record.erased},
           {"findings", findings},
           {"remarks", record.remarks},
           {"checked", record.checked},
           {"booted", record.booted.empty() ? ordered_json(nullptr) : ordered_json(record.booted)}});
    }
    const ordered_json document = {{"format", 1},
                                   {"image", options_.image},
                                   {"size", image_.size},
                                   {"ok", result() == status_success},
                                   {"devices", list}};
    printf("%s\n", document.dump(-1, ' ', false, ordered_json::error_handler_t::replace).c_str());
  }

  const install_options& options_;
  const verified_image& image_;
  progress_board progress_;
  std::vector<std::unique_ptr<device_installation>> devices_;
};

// Result: null, or what is wrong with the options together.
const char* contradiction(const install_options& options) {
  const bool over_network = !options.tftp_address.empty();
  if (over_network && (options.serial || !options.data_ports.empty())) {
    return "--tftp beside --serial or --data-port";
  }
  if (!options.data_ports.empty() && options.data_ports.size() != options.ports.size()) {
    return "as many --data-port as --port are wanted";
  }
  if (options.ports.size() > most_devices) {
    return "more than 16 devices";
  }
  std::set<std::string> lines(options.ports.begin(), options.ports.end());
  lines.insert(options.data_ports.begin(), options.data_ports.end());
  return lines.size() == options.ports.size() + options.data_ports.size() ? nullptr : "the same port twice";
}

// "ADDRESS" has kesto serve the image there, "ADDRESS:FILE" names a file of a server that is there already.
std::unique_ptr<tftp_server> serve(install_options& options) {
  if (options.tftp_address.empty()) {
    return nullptr;
  }
  if (const size_t colon = options.tftp_address.find(':'); colon != std::string::npos) {
    options.tftp_file = options.tftp_address.substr(colon + 1);
    options.tftp_address.erase(colon);
    return nullptr;
  }
  options.tftp_file = std::filesystem::path(options.image).filename();
  std::replace_if(
      options.tftp_file.begin(), options.tftp_file.end(),
      [](char c) { return c <= ' ' || c > '~' || c == '#' || c == ';' || c == '"' || c == '$' || c == '`'; },
      '_');
  return std::make_unique<tftp_server>(
      options.image, options.tftp_file,
      options.tftp_listen.empty() ? options.tftp_address : options.tftp_listen, options.tftp_port);
}

int run_install(install_options& options) {
  if (const char* why = contradiction(options)) {
    return report_usage("install", "%s", why);
  }
  try {
    const verified_image image = install_read_image(options.image);
    cancel_take_signals();
    const std::unique_ptr<tftp_server> server = serve(options);
    return production(options, image, server.get()).run();
  } catch (const device_failure& failure) {
    return failure.what()[0] == '\0' ? static_cast<int>(failure.status()) : device_report(failure);
  }
}

void declare_way(CLI::App& line, install_options& options) {
  const char* group = "How it gets there";
  line.add_flag("--serial", options.serial, "over the console's line, or --data-port; this is the default")
      ->group(group);
  line.add_option("--data-port", options.data_ports,
                  "another line to the device; one for each --port, in their order")
      ->type_name("PORT")
      ->group(group)
      ->allow_extra_args(false);
  line.add_option("--data-number", options.data_number, "number of that port on the device, 2 unless given")
      ->type_name("N")
      ->group(group);
  line.add_option("--data-speed", options.data_speed, "its speed, 115200 unless given")
      ->type_name("BPS")
      ->group(group);
  line.add_option("--pace", options.pace,
                  "send no more than so many bytes a second, for lines without flow control")
      ->type_name("BYTES")
      ->group(group);
  line.add_option("--tftp", options.tftp_address,
                  "over the network: from ADDRESS, where kesto serves the image\n"
                  "meanwhile, or from ADDRESS:FILE, a server that has it")
      ->type_name("ADDRESS[:FILE]")
      ->group(group);
  line.add_option("--listen", options.tftp_listen,
                  "where kesto serves, when the devices know it by another address")
      ->type_name("ADDRESS")
      ->group(group);
}

std::function<int()> declare_install(CLI::App& line) {
  const auto options = std::make_shared<install_options>();
  line.add_option("IMAGE", options->image)->required();
  device_options_declare(line, *options, true);
  declare_way(line, *options);
  const char* group = "Installation";
  line.add_option("--bank", options->bank, "1, 2 or single; the one that is not booted unless given")
      ->type_name("BANK")
      ->group(group)
      ->check(CLI::IsMember({"1", "2", "single"}));
  line.add_flag("--erase", options->erase, "erase before what has to be erased; asks once")->group(group);
  line.add_flag("--check", options->check, "read back what was installed, and compare")->group(group);
  line.add_flag("--boot", options->boot, "reset the device, and wait for what comes up")->group(group);
  line.add_option("--expect", options->expect, "text that the boot has to show")
      ->type_name("TEXT")
      ->group(group);
  line.add_flag("--yes", options->yes, "do not ask")->group(group);
  line.add_option("--force", options->forced, "install in spite of this finding; may be given several times")
      ->type_name("NAME")
      ->group(group)
      ->allow_extra_args(false);
  line.add_option("--retry", options->retries, "try again so often where a device failed")
      ->type_name("N")
      ->group(group);
  line.add_option("--install-limit", options->install_limit_seconds,
                  "how long the device may take, 1800 unless given")
      ->type_name("SECONDS")
      ->group(group);
  line.add_option("--boot-limit", options->boot_limit_seconds, "how long the boot may take, 180 unless given")
      ->type_name("SECONDS")
      ->group(group);
  line.add_option("--settle", options->settle_ms,
                  "wait between the begin of a download and the first byte;\n2500 unless given")
      ->type_name("MS")
      ->group(group);
  return [options] { return run_install(*options); };
}

}  // namespace

const subcommand device_install = {
    .name = "install",
    .arguments = "--port PORT... IMAGE [OPTIONS]",
    .purpose = "Install an image on a device, or on several at once",
    .text =
        "Verifies the image here, reads the device, and refuses what would report success and not be good. Erases "
        "what has\n"
        "to be erased, sends the image, and tells what the device made of it. With several ports all devices are\n"
        "served at once, and a table comes at the end.\n",
    .declare = declare_install,
};
