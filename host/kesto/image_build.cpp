// kesto image build: its command line.
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "image/header.h"
#include "kesto/description.h"
#include "kesto/image_builder.h"
#include "kesto/part.h"
#include "kesto/report.h"
#include "kesto/subcommand.h"

namespace {

// Turns the command line into an order. The traits that were given last hold for every part that follows, so
// options are taken in the order in which they were typed.
class build_line {
 public:
  explicit build_line(CLI::App& line) : line_(line) {
    line.add_option("-o,--output", order_.output, "the image; replaced only once it is complete")
        ->type_name("OUT")
        ->group("Output")
        ->take_last();
    declare_parts();
    declare_traits();
  }

  // Result: the exit status of the program.
  int run() {
    std::map<const CLI::Option*, size_t> taken;
    for (const CLI::Option* option : line_.parse_order()) {
      if (const auto found = actions_.find(option); found != actions_.end()) {
        if (const int status = found->second(option->results()[taken[option]++].c_str())) {
          return status;
        }
      }
    }
    if (const int status = check_complete()) {
      return status;
    }
    return image_builder_build(order_) ? exit_success : exit_failed;
  }

 private:
  using text_action = std::function<int(const char* text)>;  // Result: exit_success, or how the program ends

  void declare(const char* group, const char* name, const char* value, std::string description,
               text_action action) {
    CLI::Option* option = line_.add_option(name)
                              ->description(std::move(description))
                              ->type_name(value)
                              ->group(group)
                              ->take_all();
    actions_[option] = std::move(action);
  }

  void declare_parts() {
    constexpr const char* group = "Parts";
    for (const part_option& row : part_options) {
      declare(group, (std::string("--") + row.name).c_str(), "FILE", row.purpose,
              [this, &row](const char* text) { return add_part(row.type, text); });
    }
    declare(group, "--part", "TYPE=FILE",
            "any type: one of the names above, the name that 'kesto image info' shows, or\n"
            "its number, 0 to " +
                std::to_string(image_contents_count - 1),
            [this](const char* text) { return take_general_part(text); });
    declare(group, "--description", "FILE",
            "all parts that a file describes; traits before it hold where it names none",
            [this](const char* text) { return add_description(text); });
  }

  void declare_traits() {
    constexpr const char* group = "Traits, which hold for all parts behind them";
    declare(group, "--version", "A.B.C.DxN", "version, like 3.1.0.0R1, or none",
            [this](const char* text) { return take_version(text); });
    declare(group, "--code", "XX", "product code, two characters, or none",
            [this](const char* text) { return take_code(text); });
    declare(
        group, "--rootfs-size-kib", "N",
        "size of the root file system's volume on a device that is formatted for it,\n"
        "0 = the device's default",
        [this](const char* text) { return take_size("--rootfs-size-kib", text, &traits_.rootfs_size_kib); });
    declare(group, "--total-size-kib", "N", "the same for the whole UBI partition", [this](const char* text) {
      return take_size("--total-size-kib", text, &traits_.total_size_kib);
    });
  }

  int check_complete() const {
    if (order_.output.empty()) {
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
    return exit_success;
  }

  int take_version(const char* text) {
    unused_trait_ = "--version";
    return part_version_from_text(text, &traits_)
               ? exit_success
               : report_error("bad version '%s', one like 3.1.0.0R1 is wanted", text);
  }

  int take_code(const char* text) {
    unused_trait_ = "--code";
    return part_product_code_from_text(text, &traits_)
               ? exit_success
               : report_error("bad product code '%s', two printable characters are wanted", text);
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

  int add_description(const char* path) {
    if (!description_read(path, traits_, &order_.parts)) {
      return exit_failed;
    }
    unused_trait_ = nullptr;
    unused_size_ = nullptr;
    return exit_success;
  }

  int add_part(uint32_t type, const char* path) {
    part_order& part = order_.parts.emplace_back();
    part.type = type;
    part.path = path;
    part.traits = traits_;
    unused_trait_ = nullptr;
    if (part_is_rootfs(type)) {
      unused_size_ = nullptr;
    }
    return exit_success;
  }

  CLI::App& line_;
  std::map<const CLI::Option*, text_action> actions_;
  build_order order_;
  part_traits traits_;
  const char* unused_trait_ = nullptr;  // option that no part has followed yet
  const char* unused_size_ = nullptr;   // option that no root file system has followed yet
};

std::function<int()> declare_image_build(CLI::App& line) {
  const auto build = std::make_shared<build_line>(line);
  return [build] { return build->run(); };
}

}  // namespace

const subcommand image_build = {
    .name = "image build",
    .arguments = "-o OUT [TRAIT...] PART...",
    .purpose = "Build an image from files",
    .text =
        "The image consists of the parts in the order of the command line, which is also the order in which the\n"
        "device installs them. A description is a TOML file with one table [[part]] for each; docs/image-format.md\n"
        "shows it. Its file names are relative to its own place.\n",
    .declare = declare_image_build,
};
