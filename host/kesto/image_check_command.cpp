// kesto image check: its command line, and the report for people and for machines.
#include <cinttypes>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "kesto/description.h"
#include "kesto/image_check.h"
#include "kesto/image_file.h"
#include "kesto/image_json.h"
#include "kesto/part.h"
#include "kesto/report.h"
#include "kesto/subcommand.h"

namespace {

using nlohmann::ordered_json;

struct check_options {
  std::string image;
  std::string bank;
  std::string device;
  bool serial = false;
  bool network = false;
  bool json = false;

  unsigned ways() const {
    return serial == network ? image_way_any : serial ? image_way_serial : image_way_network;
  }
};

ordered_json ways_json(unsigned ways) {
  ordered_json names = ordered_json::array();
  if ((ways & image_way_serial) != 0) {
    names.push_back("serial");
  }
  if ((ways & image_way_network) != 0) {
    names.push_back("network");
  }
  return names;
}

template <typename Value>
ordered_json or_null(const std::optional<Value>& value) {
  return value ? ordered_json(*value) : ordered_json(nullptr);
}

ordered_json part_json(const image_check_part& part) {
  ordered_json json = image_part_json(part.part);
  const bool placed = part.destination != nullptr;
  json["destination"] = placed ? ordered_json(part.destination->part_name) : ordered_json(nullptr);
  json["kind"] = placed ? ordered_json(part.is_volume ? "volume" : "raw") : ordered_json(nullptr);
  json["written"] = part.written;
  json["room"] = or_null(part.room);
  json["fits"] = or_null(part.fits);
  json["erase_block"] = part.erase_block != 0 ? ordered_json(part.erase_block) : ordered_json(nullptr);
  json["erased"] = ways_json(part.erased_ways);
  return json;
}

void print_json(const image_file& image, const check_options& options, const image_check_report& report) {
  ordered_json json = {
      {"format", 1},
      {"image", options.image},
      {"size", image.size()},
      {"bank", options.bank},
      {"ways", ways_json(options.ways())},
      {"device", options.device.empty() ? ordered_json(nullptr) : ordered_json(options.device)},
      {"parts", ordered_json::array()},
      {"formats", or_null(report.formats)},
      {"environment", ordered_json::object()},
      {"findings", ordered_json::array()},
      {"ok", report.good()},
  };
  for (const image_check_part& part : report.parts) {
    json["parts"].push_back(part_json(part));
  }
  for (const auto& [name, value] : report.environment) {
    json["environment"][name] = value;
  }
  for (const image_check_finding& finding : report.findings) {
    json["findings"].push_back({
        {"name", finding.name},
        {"severity", image_check_severity_names[static_cast<int>(finding.severity)]},
        {"part", finding.part < 0 ? ordered_json(nullptr) : ordered_json(finding.part)},
        {"ways", ways_json(finding.ways)},
        {"text", finding.text},
    });
  }
  printf("%s\n", json_line(json).c_str());
}

const char* erased_text(const image_check_part& part, unsigned ways) {
  if (part.is_volume) {
    return part_is_rootfs(part.part.get(image_field_contents_type)) ? "its volume is replaced"
                                                                    : "put into its volume";
  }
  if (part.erased_ways == ways) {
    return "erased before";
  }
  return part.erased_ways != 0 ? "erased before over the network only" : "not erased before";
}

void print_part(const image_check_part& part, unsigned ways) {
  printf("Part %u, %s: ", part.part.number, part_type_name(part.part.get(image_field_contents_type)));
  if (part.destination == nullptr) {
    printf("goes nowhere\n");
    return;
  }
  printf("%" PRIu64 " bytes into %s", part.written, part.destination->part_name);
  if (part.room) {
    printf(", which has %" PRIu64, *part.room);
  }
  if (part.fits) {
    printf(*part.fits ? ": fits" : ": does not fit");
  }
  printf("; %s", erased_text(part, ways));
  if (part.erase_block != 0) {
    printf("; needs erase blocks of %u KiB", part.erase_block / 1024);
  }
  printf("\n");
}

const char* formats_text(const std::optional<bool>& formats) {
  if (!formats) {
    return "The UBI partition is formatted if it is clean.";
  }
  return *formats ? "The UBI partition is formatted." : "The UBI partition is not formatted.";
}

void print_report(const check_options& options, const image_check_report& report) {
  for (const image_check_part& part : report.parts) {
    print_part(part, options.ways());
  }
  printf("%s\n", formats_text(report.formats));
  if (!report.environment.empty()) {
    printf("At the end:");
    for (const auto& [name, value] : report.environment) {
      printf(" %s=%s", name.c_str(), value.c_str());
    }
    printf("\n");
  }
  for (const image_check_finding& finding : report.findings) {
    printf("%s %s", image_check_severity_names[static_cast<int>(finding.severity)], finding.name);
    if (finding.part >= 0) {
      printf(", part %d", finding.part);
    }
    if (finding.ways != options.ways()) {
      printf(", over %s only", finding.ways == image_way_serial ? "serial" : "the network");
    }
    printf(": %s\n", finding.text.c_str());
  }
  printf("%s: %s\n", options.image.c_str(), report.good() ? "OK" : "not good");
}

// Result: false after a fault, which goes to standard output.
bool read_parts(const image_file& image, std::vector<image_part>* parts) {
  return image.visit_parts([parts](const image_file& file, image_part& part) {
    if (part.number >= description_most_parts) {
      return file.fault(part, "more than %zu parts", description_most_parts);
    }
    uint32_t checksum;
    if (!file.take_header(part) || !file.holds_contents(part) || !file.sum_contents(part, &checksum) ||
        !file.check_sum(part, checksum) || !file.check_flag(part)) {
      return false;
    }
    parts->push_back(part);
    return true;
  }) != 0;
}

// Result: whether the image is one that can be judged. In JSON a fault is a report of its own.
bool take_image(image_file& image, const check_options& options, std::vector<image_part>* parts) {
  image_fault fault;
  if (options.json) {
    image.keep_faults(&fault);
  }
  if (read_parts(image, parts)) {
    return true;
  }
  if (!fault.text.empty()) {
    printf("%s\n", json_line({{"format", 1},
                              {"image", options.image},
                              {"size", image.size()},
                              {"ok", false},
                              {"fault", image_fault_json(fault)}})
                       .c_str());
  }
  return false;
}

int run_image_check(const check_options& options) {
  const mtd_banks bank = mtd_bank_from_word(options.bank.c_str());
  if (bank == mtd_bank_none) {
    return report_usage(image_check_command.name, "bad bank '%s', 1, 2 or single is wanted",
                        options.bank.c_str());
  }
  image_file image;
  if (!image.open(options.image.c_str())) {
    return exit_failed;
  }
  std::optional<device_record> device;
  if (!options.device.empty()) {
    device = device_record_read(options.device.c_str());
    if (!device) {
      return exit_failed;
    }
  }
  std::vector<image_part> parts;
  if (!take_image(image, options, &parts)) {
    return exit_failed;
  }
  const image_check_report report = image_check(parts, bank, options.ways(), device ? &*device : nullptr);
  if (options.json) {
    print_json(image, options, report);
  } else {
    print_report(options, report);
  }
  return report.good() ? exit_success : exit_failed;
}

std::function<int()> declare_image_check(CLI::App& line) {
  const auto options = std::make_shared<check_options>();
  line.add_option("IMAGE", options->image)->required();
  line.add_option("--bank", options->bank, "the bank to install into: 1, 2 or single")
      ->type_name("BANK")
      ->group("Installation")
      ->required()
      ->take_last();
  line.add_flag("--serial", options->serial, "judge an installation over a serial line only")
      ->group("Installation");
  line.add_flag("--network", options->network, "judge one over the network only")->group("Installation");
  line.add_option("--device", options->device,
                  "what is known of the device: what 'kesto show --json' printed")
      ->type_name("FILE")
      ->group("Installation")
      ->take_last();
  line.add_flag("--json", options->json, "one line of JSON; docs/kesto-json.md lists its keys")
      ->group("Output");
  return [options] { return run_image_check(*options); };
}

}  // namespace

const subcommand image_check_command = {
    .name = "image check",
    .arguments = "IMAGE --bank BANK [--device FILE] [OPTION...]",
    .purpose = "Tell what a device would do with an image",
    .text =
        "Says of every part where it goes, what is erased or formatted for it and whether it fits, and what is\n"
        "refused, dangerous, possible or good to know about it: one line each, with a name that stays. Without a\n"
        "device's record much is only possible. Ends with status 1 when something is refused or dangerous.\n",
    .declare = declare_image_check,
};
