// Walks the parts as an installation does and keeps track of what each leaves behind: what is formatted, how
// large the volumes are, what was written already. Destinations come from the device's own code.
#include "kesto/image_check.h"

#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "image/destination.h"
#include "image/header.h"
#include "kesto/part.h"
#include "util/log.h"

const char* const image_check_severity_names[4] = {"refused", "danger", "possible", "note"};

namespace {

// The device's code tells its faults; here they become findings.
class silence {
 public:
  silence() { log_level = level_silent; }
  silence(const silence&) = delete;
  silence& operator=(const silence&) = delete;
  ~silence() { log_level = before_; }

 private:
  uint32_t before_ = log_level;
};

// Something about the device that may not be known.
using maybe = std::optional<bool>;

using severity = image_check_severity;

// Of what is bad if `bad` is true: nothing when it is not, possible when nobody knows.
std::optional<severity> severity_if(maybe bad, severity known) {
  if (!bad) {
    return severity::possible;
  }
  return *bad ? std::optional(known) : std::nullopt;
}

std::string text_of(const char* format, ...) __attribute__((format(printf, 1, 2)));

std::string text_of(const char* format, ...) {
  char text[512];
  va_list args;
  va_start(args, format);
  vsnprintf(text, sizeof text, format, args);
  va_end(args);
  return text;
}

// The volumes of the root file systems, in logical erase blocks.
struct rootfs_volumes {
  std::optional<uint64_t> bank_1, bank_2, single, free;

  std::optional<uint64_t>& of(mtd_banks bank) {
    return bank == mtd_bank_single ? single : bank == mtd_bank_1 ? bank_1 : bank_2;
  }
  std::optional<uint64_t> total() const {
    if (!bank_1 || !bank_2 || !single || !free) {
      return std::nullopt;
    }
    return *bank_1 + *bank_2 + *single + *free;
  }
};

uint32_t erase_block_of(uint32_t type) {
  switch (type) {
    case image_contents_rootfs_ubifs_16keb:
      return 16 * 1024;
    case image_contents_rootfs_ubifs_128keb:
      return 128 * 1024;
    default:
      return 0;
  }
}

class checker {
 public:
  checker(const std::vector<image_part>& parts, mtd_banks bank, unsigned ways, const device_record* device)
      : bank_(bank), ways_(ways), device_(device) {
    for (const image_part& part : parts) {
      report_.parts.emplace_back().part = part;
      image_formats_ = image_formats_ || formats_if_clean(type_of(report_.parts.back()));
    }
    ubi_clean_ = ubi_is_clean();
    if (device != nullptr) {
      volumes_ = {lebs_of("rootfs_1"), lebs_of("rootfs_2"), lebs_of("rootfs_single"), device->available};
    }
  }

  image_check_report run() {
    for (image_check_part& part : report_.parts) {
      judge(part);
    }
    if (!image_formats_) {
      report_.formats = false;
    } else if (ubi_clean_) {
      report_.formats = *ubi_clean_;
    }
    judge_whole();
    return std::move(report_);
  }

 private:
  static uint32_t type_of(const image_check_part& part) { return part.part.get(image_field_contents_type); }
  static bool formats_if_clean(uint32_t type) {
    return type == image_contents_rootfs_ubifs_16keb || type == image_contents_rootfs_ubifs_128keb ||
           type == image_contents_rootfs_tar_lzma;
  }

  void add(const char* name, severity level, const image_check_part* part, unsigned ways, std::string text) {
    if ((ways & ways_) != 0) {
      const int number = part == nullptr ? -1 : static_cast<int>(part->part.number);
      report_.findings.push_back({name, level, number, ways & ways_, std::move(text)});
    }
  }

  // --- what the record says

  const device_partition* known(const char* name) const {
    return device_ == nullptr ? nullptr : device_->partition(name);
  }

  std::optional<uint64_t> lebs_of(const char* name) const {
    const device_volume* volume = device_->volume(name);
    if (volume == nullptr || volume->reserved_ebs || !volume->size || device_->leb_size.value_or(0) == 0) {
      return volume == nullptr ? std::nullopt : volume->reserved_ebs;
    }
    return *volume->size / *device_->leb_size;
  }

  // Only a clean UBI partition has clean volumes, and with that none.
  maybe ubi_is_clean() const {
    for (const mtd_partition* row = nullptr; (row = mtd_get_by_type(row, mtd_type_ubi0)) != nullptr;) {
      const device_partition* found = known(row->part_name);
      if (found != nullptr && !found->status.empty()) {
        return found->status == "clean";
      }
    }
    return device_ != nullptr && !device_->volumes.empty() ? maybe(false) : std::nullopt;
  }

  maybe is_erased(const mtd_partition& row) const {
    const device_partition* found = known(row.part_name);
    return found == nullptr || found->status.empty() ? std::nullopt : maybe(found->status == "clean");
  }

  // --- one part

  void judge(image_check_part& part) {
    const uint32_t type = type_of(part);
    if (part.part.length() == 0) {
      add("empty-part", severity::danger, &part, image_way_any, "there are no contents");
    }
    if (part_has_destination(type)) {
      part.destination = image_find_destination(__func__, type, bank_);
    }
    if (part.destination == nullptr) {
      add("no-place", severity::refused, &part, image_way_any,
          text_of("the device has no place for contents of type %s", part_type_name(type)));
      return;
    }
    part.is_volume = image_destination_is_ubi(*part.destination);
    part.written = uint64_t{part.part.length()} + (image_contents_keep_header(type) ? image_header_size : 0);
    part.erase_block = erase_block_of(type);
    if (part.is_volume) {
      judge_volume(part);
    } else {
      judge_raw(part);
    }
    written_.push_back(part.destination);
  }

  void judge_raw(image_check_part& part) {
    const mtd_partition& row = *part.destination;
    if (const device_partition* found = known(row.part_name); found != nullptr && found->size) {
      part.room = found->size;
      part.fits = part.written <= *part.room;
      if (!*part.fits) {
        add("too-large", severity::danger, &part, image_way_any,
            text_of("%" PRIu64 " bytes for %s, which has %" PRIu64 ": the end would be cut off", part.written,
                    row.part_name, *part.room));
      }
    }
    // Preparing for a network installation unlocks no serial flash.
    const bool erased_over_network = row.protect == 0 || row.type == mtd_type_nand;
    part.erased_ways = erased_over_network ? ways_ & image_way_network : 0;
    const maybe erased = is_erased(row);
    const maybe old = erased ? maybe(!*erased) : std::nullopt;
    switch (type_of(part)) {
      case image_contents_boot_env:
        judge_boot_env(part, old);
        break;
      case image_contents_bootstrap:
      case image_contents_bootloader:
        if (const auto found = severity_if(old, severity::danger)) {
          add("boot-loader", *found, &part, image_way_any,
              text_of("%s is not erased before, and a mixture with what it holds does not start",
                      row.part_name));
        } else {
          add("boot-loader", severity::note, &part, image_way_any,
              "a device whose power is cut during this part does not start");
        }
        break;
      default:
        if (const auto found = severity_if(old, severity::danger)) {
          add("not-erased", *found, &part, image_way_serial, not_erased_text(row));
        }
    }
    if (type_of(part) != image_contents_boot_env) {
      judge_second_writing(part, severity::danger, image_way_any);
    }
  }

  void judge_second_writing(const image_check_part& part, severity severity_of_it, unsigned ways) {
    if (std::find(written_.begin(), written_.end(), part.destination) != written_.end()) {
      add("written-twice", severity_of_it, &part, ways,
          text_of("%s is written by a part in front of it, and is not erased in between",
                  part.destination->part_name));
    }
  }

  std::string not_erased_text(const mtd_partition& row) const {
    if (row.image == mtd_image_kernel) {
      return text_of("%s is written over what it holds: 'flash kill %s kernel' before", row.part_name,
                     mtd_bank_string[bank_]);
    }
    return text_of("%s is written over what it holds, and only a network installation erases it",
                   row.part_name);
  }

  // An environment is for new devices: it is taken while the UBI partition is clean. Over the network that is
  // formatted before the first part is written.
  void judge_boot_env(image_check_part& part, maybe old) {
    part.erased_ways = 0;
    if (!ubi_clean_.value_or(false)) {
      add("boot-env-skipped", severity::note, &part, image_way_any,
          ubi_clean_ ? "passed over, for the device is in use" : "passed over if the device is in use");
    }
    if (ubi_clean_ && !*ubi_clean_) {
      return;
    }
    const unsigned lost_ways =
        (formatted_ ? image_way_serial : 0U) | (image_formats_ ? image_way_network : 0U);
    const severity bad = ubi_clean_ ? severity::danger : severity::possible;
    add("boot-env-lost", bad, &part, lost_ways,
        "passed over, because a root file system of this image has the UBI partition formatted before");
    judge_second_writing(part, bad, image_way_any & ~lost_ways);
    if (const auto found = severity_if(old, bad)) {
      add("boot-env-mixed", *found, &part, image_way_any & ~lost_ways,
          text_of("%s is written over what it holds", part.destination->part_name));
    }
  }

  // The UBI partition as the parts in front have left it.
  maybe clean_now() const { return formatted_ ? maybe(false) : ubi_clean_; }

  void judge_volume(image_check_part& part) {
    const uint32_t type = type_of(part);
    if (part_is_rootfs(type)) {
      judge_erase_block(part);
      if (clean_now().value_or(true)) {
        format(part);
      }
      judge_schema(part);
      judge_volume_size(part);
      return;
    }
    if (const auto found = severity_if(clean_now(), severity::refused)) {
      add("clean-flash", *found, &part, image_way_any,
          text_of("a clean UBI partition holds no volume %s; a root file system has to come before",
                  part.destination->part_name));
    }
    if (type == image_contents_python_setup) {
      add("python-packages", severity::note, &part, image_way_any,
          "the user's packages lie in RAM meanwhile, and are lost when it breaks off");
    }
  }

  void judge_erase_block(const image_check_part& part) {
    for (const image_check_part& other : report_.parts) {
      if (part.erase_block != 0 && other.erase_block != 0 && other.erase_block != part.erase_block) {
        add("erase-block", severity::refused, &part, image_way_any,
            text_of("made for other erase blocks than part %u", other.part.number));
        return;
      }
    }
    const device_partition* ubi = known("ubi0");
    if (part.erase_block != 0 && ubi != nullptr && ubi->erase_block &&
        *ubi->erase_block != part.erase_block) {
      add("erase-block", severity::refused, &part, image_way_any,
          text_of("made for erase blocks of %u KiB, the device has %u KiB", part.erase_block / 1024,
                  *ubi->erase_block / 1024));
    }
  }

  // What a clean UBI partition becomes; one of which that is not known, too.
  void format(const image_check_part& part) {
    formatted_ = true;
    if (!ubi_clean_) {
      return;
    }
    volumes_ = {};
    volumes_.single = 1;
    const device_partition* ubi = known("ubi0");
    if (ubi == nullptr || !ubi->size) {
      return;
    }
    const uint64_t most = *ubi->size;
    uint64_t rootfs = uint64_t{part.part.get(image_field_rootfs_size_kib)} * 1024;
    uint64_t total = uint64_t{part.part.get(image_field_total_size_kib)} * 1024;
    rootfs = rootfs != 0 ? rootfs : most / 4;
    total = total != 0 ? total : most;
    if (total > most || 2 * rootfs + most / 50 > total) {
      add("format-too-large", severity::refused, &part, image_way_any,
          text_of("root file systems of %" PRIu64 " KiB in %" PRIu64 " KiB, of a UBI partition of %" PRIu64
                  " KiB",
                  rootfs / 1024, total / 1024, most / 1024));
    }
    if (const uint64_t leb = device_->leb_size.value_or(0); leb != 0) {
      volumes_.bank_1 = volumes_.bank_2 = (rootfs + leb - 1) / leb;
      volumes_.free = 0;
    }
  }

  // The device wants its volumes to agree with the bank that it boots, then changes them for the new one.
  void judge_schema(const image_check_part& part) {
    const mtd_banks active = device_ == nullptr ? mtd_bank_none : device_->active_bank;
    if (active == mtd_bank_none) {
      return;
    }
    const bool single = active == mtd_bank_single;
    if (volumes_.single && single == (*volumes_.single == 1)) {
      add("schema", severity::refused, &part, image_way_any,
          text_of("the device boots bank %s, its volumes are those of %s: \"flash clean\" first",
                  mtd_bank_string[active], single ? "two banks" : "a single bank"));
      return;
    }
    if (single == (bank_ == mtd_bank_single)) {
      return;
    }
    const bool lost = !formatted_;
    add("schema-change", lost ? severity::danger : severity::note, &part, image_way_any,
        text_of("%s %s the space of the root file systems%s", single ? "banks 1 and 2" : "the single bank",
                single ? "get" : "gets", lost ? "; what the device boots now is lost" : ""));
    const std::optional<uint64_t> total = volumes_.total();
    volumes_ = {};
    if (total && single) {
      volumes_ = {(*total - 1) / 2, (*total - 1) / 2, 1, (*total - 1) % 2};
    } else if (total) {
      volumes_ = {1, 1, *total - 2, 0};
    }
  }

  void judge_volume_size(image_check_part& part) {
    const std::optional<uint64_t> lebs = volumes_.of(bank_);
    if (lebs && *lebs == 1) {
      part.fits = false;
      add("volume-too-small", severity::refused, &part, image_way_any,
          text_of("%s has one erase block", part.destination->part_name));
      return;
    }
    if (!lebs || !device_->leb_size) {
      return;
    }
    part.room = *lebs * *device_->leb_size;
    const bool is_image = part.erase_block != 0;  // of the volume; an archive grows when it is unpacked
    const bool fits = part.written <= *part.room;
    if (is_image || !fits) {
      part.fits = fits;
    }
    if (!fits) {
      add("volume-too-small", is_image ? severity::refused : severity::danger, &part, image_way_any,
          text_of("%" PRIu64 " bytes for %s, which has %" PRIu64, part.written, part.destination->part_name,
                  *part.room));
    }
  }

  // --- the whole image

  void judge_whole() {
    const image_check_part* kernel = nullptr;
    const image_check_part* rootfs = nullptr;
    for (const image_check_part& part : report_.parts) {
      judge_product(part);
      if (part.destination == nullptr) {
        continue;
      }
      kernel = part.destination->image == mtd_image_kernel ? &part : kernel;
      rootfs = part.destination->image == mtd_image_rootfs ? &part : rootfs;
    }
    if (kernel == nullptr && rootfs == nullptr) {
      return;
    }
    const char* bank = mtd_bank_string[bank_];
    report_.environment = {
        {text_of("kernel_size_%s", bank), text_of("%" PRIX32, kernel == nullptr ? 0 : kernel->part.length())},
        {"bootbank", bank}};
    if (kernel == nullptr) {
      add("no-kernel", severity::danger, nullptr, image_way_any,
          text_of("a root file system without a kernel: bank %s is switched to, with a kernel size of 0",
                  bank));
    } else if (rootfs == nullptr) {
      judge_missing_rootfs();
    }
    if (device_ != nullptr && device_->active_bank == bank_) {
      add("active-bank", severity::note, nullptr, image_way_any,
          text_of("bank %s is the one that is booted: when this fails there is no other", bank));
    }
  }

  void judge_missing_rootfs() {
    const mtd_partition* row = mtd_get_by_image_and_bank(nullptr, mtd_image_rootfs, bank_);
    const device_partition* found = known(row->part_name);
    const bool is_known = found != nullptr && !found->status.empty();
    const bool there = is_known && (found->status == "active" || found->status == "inactive");
    if (const auto found_severity = severity_if(is_known ? maybe(!there) : std::nullopt, severity::danger)) {
      add("no-rootfs", *found_severity, nullptr, image_way_any,
          text_of("a kernel without a root file system, and %s %s", row->part_name,
                  is_known ? "holds none" : "may hold none"));
    }
  }

  void judge_product(const image_check_part& part) {
    char code[4];
    if (device_ == nullptr ||
        !image_get_product_code_string(part.part.header + image_field_product_code, code, sizeof code)) {
      return;
    }
    std::string others;
    for (const device_partition& row : device_->flash) {
      if (row.code == code) {
        return;
      }
      if (!row.code.empty() && row.code != "-" && others.find(row.code) == std::string::npos) {
        others += (others.empty() ? "" : ", ") + row.code;
      }
    }
    if (!others.empty()) {
      add("other-product", severity::danger, &part, image_way_any,
          text_of("made for product %s, the device holds %s", code, others.c_str()));
    }
  }

  mtd_banks bank_;
  unsigned ways_;
  const device_record* device_;
  image_check_report report_;
  bool image_formats_ = false;  // it has a part before which a clean UBI partition is formatted
  maybe ubi_clean_;             // before the installation
  bool formatted_ = false;      // by a part in front; or, if nobody knows, no longer clean in any case
  rootfs_volumes volumes_;
  std::vector<const mtd_partition*> written_;
};

}  // namespace

bool image_check_report::good() const {
  return std::none_of(findings.begin(), findings.end(), [](const image_check_finding& finding) {
    return finding.severity == severity::refused || finding.severity == severity::danger;
  });
}

image_check_report image_check(const std::vector<image_part>& parts, mtd_banks bank, unsigned ways,
                               const device_record* device) {
  const silence silence;
  return checker(parts, bank, ways, device).run();
}
