// kesto image build: its command line.
#include <getopt.h>

#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "image/header.h"
#include "kesto/image_builder.h"
#include "kesto/part.h"
#include "kesto/report.h"
#include "kesto/subcommand.h"

namespace {

// What getopt_long() returns for a long option: one of these, or `option_type` + the contents type.
enum option_values : int {
  option_part = 0x100,
  option_version,
  option_code,
  option_rootfs_size,
  option_total_size,
  option_type = 0x200,
};

std::vector<option> long_options() {
  std::vector<option> options = {
      {"output", required_argument, nullptr, 'o'},
      {"help", no_argument, nullptr, 'h'},
      {"part", required_argument, nullptr, option_part},
      {"version", required_argument, nullptr, option_version},
      {"code", required_argument, nullptr, option_code},
      {"rootfs-size-kib", required_argument, nullptr, option_rootfs_size},
      {"total-size-kib", required_argument, nullptr, option_total_size},
  };
  for (const part_option& row : part_options) {
    options.push_back({row.name, required_argument, nullptr, option_type + static_cast<int>(row.type)});
  }
  options.push_back({});
  return options;
}

// Reads the command line into an order. The traits that were given last hold for every part that follows.
class order_reader {
 public:
  explicit order_reader(build_order& order) : order_(order) {}

  // Result: nothing when the order is complete, else the exit status of the program.
  std::optional<int> read(int count, char** arguments) {
    const std::vector<option> options = long_options();
    opterr = 0;
    int found;
    while ((found = getopt_long(count, arguments, ":o:h", options.data(), nullptr)) != -1) {
      if (found == 'h') {
        return subcommand_help(image_build);
      }
      if (found == '?' || found == ':') {
        return report_bad_option(image_build.name, found, arguments);
      }
      if (const int status = take(found, optarg)) {
        return status;
      }
    }
    if (optind < count) {
      return report_usage(image_build.name, "'%s' belongs to no option", arguments[optind]);
    }
    return check_complete();
  }

 private:
  std::optional<int> check_complete() const {
    if (order_.output == nullptr || order_.output[0] == '\0') {
      return report_usage(image_build.name, "no output file");
    }
    if (order_.parts.empty()) {
      return report_usage(image_build.name, "no parts");
    }
    if (unused_trait_ != nullptr) {
      return report_usage(image_build.name, "%s holds for parts behind it, and there is none", unused_trait_);
    }
    if (unused_size_ != nullptr) {
      return report_usage(image_build.name, "%s holds for root file systems behind it, and there is none",
                          unused_size_);
    }
    return std::nullopt;
  }

  int take(int found, const char* text) {
    switch (found) {
      case 'o':
        order_.output = text;
        return exit_success;
      case option_part:
        return take_general_part(text);
      case option_version:
        unused_trait_ = "--version";
        return part_version_from_text(text, &traits_)
                   ? exit_success
                   : report_error("bad version '%s', one like 3.1.0.0R1 is wanted", text);
      case option_code:
        unused_trait_ = "--code";
        return part_product_code_from_text(text, &traits_)
                   ? exit_success
                   : report_error("bad product code '%s', two printable characters are wanted", text);
      case option_rootfs_size:
        return take_size("--rootfs-size-kib", text, &traits_.rootfs_size_kib);
      case option_total_size:
        return take_size("--total-size-kib", text, &traits_.total_size_kib);
      default:
        return add_part(static_cast<uint32_t>(found - option_type), text);
    }
  }

  int take_size(const char* name, const char* text, uint32_t* size) {
    unused_size_ = name;
    return part_size_from_text(text, size) ? exit_success
                                           : report_error("bad size '%s', a number of KiB is wanted", text);
  }

  int take_general_part(const char* text) {
    const char* separator = strchr(text, '=');
    if (separator == nullptr) {
      return report_usage(image_build.name, "bad part '%s', TYPE=FILE is wanted", text);
    }
    const std::string name(text, separator);
    uint32_t type;
    if (!part_type_from_text(name.c_str(), &type)) {
      return report_error("unknown contents type '%s'", name.c_str());
    }
    return add_part(type, separator + 1);
  }

  int add_part(uint32_t type, const char* path) {
    order_.parts.push_back({type, path, traits_});
    unused_trait_ = nullptr;
    if (part_is_rootfs(type)) {
      unused_size_ = nullptr;
    }
    return exit_success;
  }

  build_order& order_;
  part_traits traits_;
  const char* unused_trait_ = nullptr;  // option that no part has followed yet
  const char* unused_size_ = nullptr;   // option that no root file system has followed yet
};

void print_help() {
  printf(
      "The image consists of the parts in the order of the command line, which is also the order in which "
      "the\n"
      "device installs them.\n"
      "\n"
      "Output:\n"
      "  -o, --output OUT         the image; replaced only once it is complete\n"
      "\n"
      "Parts:\n");
  for (const part_option& row : part_options) {
    char name[32];
    snprintf(name, sizeof name, "--%s FILE", row.name);
    printf("  %-24s %s\n", name, row.purpose);
  }
  printf(
      "  --part TYPE=FILE         any type: one of the names above, the name that 'kesto image info' shows, "
      "or\n"
      "                           its number, 0 to %u\n"
      "\n"
      "Traits, which hold for all parts behind them:\n"
      "  --version A.B.C.DxN      version, like 3.1.0.0R1, or none\n"
      "  --code XX                product code, two characters, or none\n"
      "  --rootfs-size-kib N      size of the root file system's volume on a device that is formatted for "
      "it,\n"
      "                           0 = the device's default\n"
      "  --total-size-kib N       the same for the whole UBI partition\n",
      image_contents_count - 1);
}

int run(int count, char** arguments) {
  build_order order;
  if (const std::optional<int> status = order_reader(order).read(count, arguments)) {
    return *status;
  }
  return image_builder_build(order) ? exit_success : exit_failed;
}

}  // namespace

const subcommand image_build = {
    .name = "image build",
    .arguments = "-o OUT [TRAIT...] PART...",
    .purpose = "Build an image from files",
    .print_help = print_help,
    .run = run,
};
