// Commands that are run: flash kill BANK kernel, flash download serial, flash download
// network, flash analyze, reset, and those of device_read().
#include "kesto/installation.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>

#include "bootenv/bank.h"
#include "device/serial_sender.h"
#include "kesto/device_json.h"
#include "kesto/part.h"
#include "util/unique_fd.h"

namespace {

constexpr const char* begin_text = "Begin serial download...";
// A download that nobody feeds any more ends after 30 seconds before a header, after 3 within a part.
constexpr seconds abandoned_limit{50};
// A device that formats its flash takes nothing meanwhile.
constexpr std::chrono::minutes stalled_limit{2};
constexpr milliseconds look{300};
// What comes up is silent for a while between its stages.
constexpr seconds boot_silence{15};

bool is_kernel(const image_check_part& part) {
  return part.destination != nullptr && part.destination->image == mtd_image_kernel;
}

// Whether a finding stands against the installation.
bool stands_against(const image_check_finding& finding) {
  return finding.severity == image_check_severity::refused ||
         finding.severity == image_check_severity::danger;
}

std::string version_of(const image_part& part) {
  char text[24] = {};
  return image_get_version_string(part.header + image_field_contents_version, text, sizeof text) ? text : "-";
}

std::string code_of(const image_part& part) {
  char text[4] = {};
  return image_get_product_code_string(part.header + image_field_product_code, text, sizeof text) ? text
                                                                                                  : "-";
}

std::string last_line_of(const std::string& text) {
  std::string last;
  for (const std::string& line : text_lines(text)) {
    if (line.find_first_not_of(" \t\b") != std::string::npos) {
      last = line;
    }
  }
  return one_line(last);
}

// A network installation says where it is.
constexpr const char* first_phase = "Retrieving file";
constexpr const char* later_phases[] = {"Installing ...", "Preparing ..."};

std::string phase_of(const std::string& shown) {
  for (const char* phase : later_phases) {
    if (shown.find(phase) != std::string::npos) {
      return phase;
    }
  }
  return first_phase;
}

std::string first_error(const std::string& text) {
  for (const std::string& remark : answer_remarks(text)) {
    if (remark.starts_with("ERROR: ")) {
      return one_line(remark.substr(strlen("ERROR: ")));
    }
  }
  return "Done: FAILURE";
}

}  // namespace

verified_image install_read_image(const std::string& path) {
  verified_image made;
  made.path = path;
  image_file image;
  image_fault fault;
  image.keep_faults(&fault);
  if (!image.open(path.c_str())) {
    throw device_failure(status_failed, "");  // the error was told
  }
  made.size = image.size();
  const unsigned count = image.visit_parts([&made](const image_file& file, image_part& part) {
    uint32_t checksum = 0;
    uint32_t first_word = 0;
    bool first = true;
    const auto take = [&](const file_piece& piece) {
      if (first && piece.data != nullptr && piece.size >= sizeof first_word) {
        memcpy(&first_word, piece.data, sizeof first_word);
      }
      first = false;
      return true;
    };
    if (!file.take_header(part) || !file.holds_contents(part) || !file.read_contents(part, take, &checksum) ||
        !file.check_sum(part, checksum) || !file.check_flag(part)) {
      return false;
    }
    made.parts.push_back(part);
    made.first_words.push_back(first_word);
    return true;
  });
  if (count == 0) {
    throw device_failure(status_failed, fault.text.empty()
                                            ? ""
                                            : fmt::format("{}: part {} at offset {}: {}", path, fault.part,
                                                          fault.offset, fault.text));
  }
  return made;
}

device_installation::device_installation(const install_options& options, const verified_image& image,
                                         const tftp_server* server, size_t number, progress_board& progress)
    : options_(options), image_(image), server_(server), number_(number), progress_(progress) {
  record_.port = options.ports[number];
}

// After a failure the line is brought to a prompt, or said to be lost, whatever ends the action.
template <typename Action>
void device_installation::guarded(Action action) {
  try {
    action();
  } catch (const device_failure& failure) {
    if (failure.status() == status_refused) {
      throw;  // at its prompt, and untouched
    }
    std::string text = failure.what();
    if (began_) {
      text += "; " + state_of_banks();
    }
    throw device_settle(*connection_, {failure.status(), text}, began_ ? abandoned_limit : seconds(15));
  }
}

std::string device_installation::state_of_banks() const {
  return fmt::format("bank {} is not good now, bank {} boots as before{}", record_.bank,
                     device_.active_bank(),
                     record_.bank == device_.active_bank() ? ", and that is the same" : "");
}

void device_installation::prepare() {
  began_ = false;
  erasures_.clear();
  erase_commands_.clear();
  record_.findings.clear();
  record_.remarks.clear();
  record_.checked.clear();
  progress_.state(number_, "looking for the prompt");
  connection_ = std::make_unique<device_connection>(record_.port, options_);
  guarded([this] {
    shell_session& shell = connection_->shell;
    shell.find_prompt(options_.limit(), options_.after_restart);
    device_ = device_read(shell, options_.limit(), [this](const std::string& command) {
      progress_.state(number_, "reading the device: " + command);
    });
    judge();
  });
}

void device_installation::judge() {
  record_.bank = options_.bank;
  if (record_.bank.empty()) {
    const std::string active = device_.active_bank();
    record_.bank = active == "1" ? "2" : active == "2" ? "1" : "single";
  }
  const unsigned way = options_.tftp_address.empty() ? image_way_serial : image_way_network;
  const mtd_banks bank = mtd_bank_from_word(record_.bank.c_str());
  std::string fault;
  // Through text and back, so that what is judged is what "kesto show --json" records. A variable of the boot
  // environment may hold any bytes.
  const std::string text =
      device_state_json(device_).dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
  auto known = device_record_from_json(nlohmann::json::parse(text), &fault);
  if (!known) {
    throw device_failure(status_device_failed, fmt::format("{}: odd answers ({})", record_.port, fault));
  }
  report_ = image_check(image_.parts, bank, way, &*known);
  if (way == image_way_serial) {
    for (const image_check_part& part : report_.parts) {
      const flash_row* row = is_kernel(part) ? device_.row(part.destination->part_name) : nullptr;
      if (row == nullptr || row->status == "clean") {
        continue;
      }
      erase_commands_.push_back(fmt::format("flash kill {} kernel", record_.bank));
      erasures_.push_back(fmt::format("{} of {} ({})", row->name, record_.port,
                                      row->status.empty()    ? "contents not known"
                                      : row->version.empty() ? row->status
                                                             : "holds " + row->version));
      for (device_partition& partition : known->flash) {
        partition.status = partition.name == row->name ? "clean" : partition.status;
      }
      break;  // one command erases it, however many parts go there
    }
  }
  if (!erase_commands_.empty() && options_.erase) {
    report_ = image_check(image_.parts, bank, way, &*known);
  }
  record_.findings = report_.findings;
  if (!erase_commands_.empty() && !options_.erase) {
    const auto forced = std::find(options_.forced.begin(), options_.forced.end(), "not-erased");
    if (forced == options_.forced.end()) {
      throw device_failure(status_refused, fmt::format("{}: not-erased: {} has to be erased first (--erase)",
                                                       record_.port, erasures_.front()));
    }
    erase_commands_.clear();
    erasures_.clear();
  }
  for (const image_check_finding& finding : report_.findings) {
    const bool forced =
        std::find(options_.forced.begin(), options_.forced.end(), finding.name) != options_.forced.end();
    if (stands_against(finding) && !forced) {
      throw device_failure(status_refused,
                           fmt::format("{}: {}: {} (--force {} installs it nevertheless)", record_.port,
                                       finding.name, finding.text, finding.name));
    }
  }
}

void device_installation::perform() {
  guarded([this] {
    connection_->shell.says_yes = true;  // the person has said so
    erase();
    const auto begin = clock_type::now();
    if (options_.tftp_address.empty()) {
      send_serial();
    } else {
      fetch();
    }
    record_.send_seconds = std::chrono::duration<double>(clock_type::now() - begin).count();
    record_.bytes = image_.size;
    began_ = false;  // and it is good
    if (options_.check) {
      check();
    }
    if (options_.boot) {
      boot();
    }
  });
}

void device_installation::erase() {
  for (const std::string& command : erase_commands_) {
    progress_.state(number_, command);
    began_ = true;
    const answer given = connection_->shell.run(command, seconds(options_.install_limit_seconds));
    if (answer_kind_of(given) != answer_kind::good) {
      throw device_failure(status_device_failed, fmt::format("{}: '{}' failed: {}", record_.port, command,
                                                             first_error(given.text)));
    }
  }
  record_.erased = erasures_;
}

void device_installation::send_serial() {
  shell_session& shell = connection_->shell;
  const bool same_line = options_.data_ports.empty();
  std::unique_ptr<line> data_line;
  std::string command = "flash download serial " + record_.bank;
  if (!same_line) {
    line_settings settings = options_.settings;
    settings.speed = options_.data_speed;
    data_line = std::make_unique<line>(port_name_parse(options_.data_ports[number_]), settings);
    command += fmt::format(" {} {}", options_.data_number, options_.data_speed);
  }
  const unique_fd file(open(image_.path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file) {
    throw device_failure(status_failed, fmt::format("{}: open error ({})", image_.path, strerror(errno)));
  }
  progress_.state(number_, command);
  shell.start(command);
  if (!shell.wait_for(begin_text, options_.limit())) {
    const answer given = shell.finish(options_.limit());
    throw device_failure(status_device_failed,
                         fmt::format("{}: '{}' failed: {}", record_.port, command, first_error(given.text)));
  }
  // The device opens its port a second later and drops what is there by then. It waits 30 seconds for the
  // first byte.
  const auto ready = clock_type::now() + milliseconds(options_.settle_ms);
  while (clock_type::now() < ready) {
    shell.listen(std::max(std::chrono::ceil<milliseconds>(ready - clock_type::now()), milliseconds(1)));
  }
  began_ = true;
  progress_.state(number_, fmt::format("sending {} bytes", image_.size));
  const serial_sending sending{
      .data = same_line ? &connection_->wire : data_line.get(),
      .shell = &shell,
      .same_line = same_line,
      .file = file.get(),
      .size = image_.size,
      .pace = options_.pace,
      .patience = std::max<milliseconds>(stalled_limit, options_.limit()),
      .progress = [this](uint64_t sent) { progress_.bytes(number_, sent, image_.size); }};
  bool complete = false;
  try {
    complete = serial_send(sending);
  } catch (const device_failure& failure) {
    sending.data->discard_unsent();
    // While it waits for bytes, the device takes keys for them: only silence ends a download.
    connection_->wire.shield(true);
    const auto end = clock_type::now() + abandoned_limit;
    if (failure.status() == status_interrupted) {
      progress_.state(number_, "interrupted; the device gives up when nothing comes");
      while (!shell.finished(look) && clock_type::now() < end) {
      }
    }
    connection_->wire.shield(false);
    throw;
  }
  if (!complete) {
    sending.data->discard_unsent();
  }
  progress_.state(number_, complete ? "waiting for the device" : "the device stopped taking the image");
  take_result(shell.finish(seconds(options_.install_limit_seconds)));
}

void device_installation::fetch() {
  shell_session& shell = connection_->shell;
  const std::string command =
      fmt::format("flash download network {} {} {}", record_.bank, options_.tftp_address, options_.tftp_file);
  progress_.state(number_, command);
  const uint64_t before = server_ == nullptr ? 0 : server_->sent();
  shell.start(command);
  const auto end = clock_type::now() + seconds(options_.install_limit_seconds);
  std::string phase = first_phase;
  bool done = false;
  while (!done && clock_type::now() < end) {
    done = shell.finished(look);
    const std::string said = phase_of(shell.shown());
    if (said != phase) {
      phase = said;
      began_ = began_ || phase != first_phase;
      progress_.state(number_, phase);
    }
    if (server_ != nullptr && options_.ports.size() == 1) {
      progress_.bytes(number_, std::min(server_->sent() - before, 2 * image_.size), 2 * image_.size);
    }
  }
  take_result(shell.finish(seconds(1)));
}

void device_installation::take_result(const answer& given) {
  record_.remarks = answer_remarks(given.text);
  if (answer_kind_of(given) != answer_kind::good || given.text.find("Done: SUCCESS") == std::string::npos) {
    throw device_failure(status_device_failed, fmt::format("{}: the device did not install it: {}",
                                                           record_.port, first_error(given.text)));
  }
}

// The device reads its flash; what it shows of each part is compared. Volumes show no checksum, and a version
// only where their system tells one.
void device_installation::check() {
  progress_.state(number_, "reading back: flash analyze");
  device_read_flash(connection_->shell, seconds(options_.limit_seconds), device_);
  for (size_t i = 0; i < report_.parts.size(); ++i) {
    const image_check_part& checked = report_.parts[i];
    const image_part& part = checked.part;
    const uint32_t type = part.get(image_field_contents_type);
    const flash_row* row =
        checked.destination == nullptr ? nullptr : device_.row(checked.destination->part_name);
    if (row == nullptr || type == image_contents_oem_defaults || type == image_contents_python_setup) {
      continue;
    }
    const bool skipped =
        std::any_of(record_.remarks.begin(), record_.remarks.end(), [type](const std::string& text) {
          return type == image_contents_boot_env && text.starts_with("NOTE: Skipping boot_env");
        });
    if (skipped) {
      record_.checked.push_back(row->name + ": passed over by the device");
      continue;
    }
    std::vector<std::string> wrong;
    const auto compare = [&wrong](const char* what, const std::string& expected, const std::string& found) {
      if (expected != found) {
        wrong.push_back(fmt::format("{} is {}, not {}", what, found, expected));
      }
    };
    if (row->status != "active" && row->status != "inactive") {
      wrong.push_back(fmt::format("shown as {}", row->status.empty() ? "nothing" : row->status));
    } else if (checked.is_volume) {
      if (!row->version.empty() && version_of(part) != "-") {
        compare("version", version_of(part), row->version);
      }
      if (!row->product_code.empty() && code_of(part) != "-") {
        compare("product code", code_of(part), row->product_code);
      }
    } else if (type == image_contents_boot_env) {
      // It begins with the checksum that the device shows, in the device's order, little end first.
      const uint32_t word = image_.first_words[i];
      const uint32_t crc = std::endian::native == std::endian::little ? word : __builtin_bswap32(word);
      compare("checksum", fmt::format("{:08x}", crc), fmt::format("{:08x}", row->checksum.value_or(0)));
    } else if (type != image_contents_bootstrap) {
      compare("version", version_of(part), row->version.empty() ? "-" : row->version);
      compare("product code", code_of(part), row->product_code.empty() ? "-" : row->product_code);
      compare("size", std::to_string(part.length()), std::to_string(row->used.value_or(0)));
      compare("checksum", fmt::format("{:08x}", part.get(image_field_header_checksum)),
              fmt::format("{:08x}", row->checksum.value_or(0)));
    }
    if (!wrong.empty()) {
      throw device_failure(status_device_failed,
                           fmt::format("{}: the device reported success, but {}: {}; do not use bank {}",
                                       record_.port, row->name, fmt::join(wrong, ", "), record_.bank));
    }
    record_.checked.push_back(fmt::format("{}: good{}", row->name,
                                          checked.is_volume      ? ", as far as its volume tells"
                                          : row->version.empty() ? ""
                                                                 : ", " + row->version));
  }
}

void device_installation::boot() {
  progress_.state(number_, "reset; waiting for what comes up");
  shell_session& shell = connection_->shell;
  shell.start("reset");
  const auto end = clock_type::now() + seconds(options_.boot_limit_seconds);
  auto heard = clock_type::now();
  std::string last;
  for (;;) {
    const auto now = clock_type::now();
    if (shell.listen(look)) {
      heard = now;
      last = last_line_of(shell.shown());
    }
    const std::string shown = shell.shown();
    if (!options_.expect.empty() && shown.find(options_.expect) != std::string::npos) {
      record_.booted = options_.expect;
      return;
    }
    if (shown.find("Reset Failed") != std::string::npos) {
      throw device_failure(status_device_failed,
                           fmt::format("{}: the device cannot reset itself", record_.port));
    }
    if (shell.restarted() && shell.finished(look)) {
      record_.booted = "the recovery shell";
      if (!options_.expect.empty()) {
        throw device_failure(status_device_failed, fmt::format("{}: the recovery shell came up, not '{}'",
                                                               record_.port, options_.expect));
      }
      return;
    }
    const bool is_reset_prompt = last.empty() || last == "CLI>";
    if (options_.expect.empty() && !is_reset_prompt && now - heard > boot_silence) {
      record_.booted = last;
      return;
    }
    if (now > end) {
      const std::string seen = is_reset_prompt ? "nothing" : "'" + last + "'";
      throw device_failure(status_no_prompt, fmt::format("{}: after the reset {} came up within {} s",
                                                         record_.port, seen, options_.boot_limit_seconds));
    }
  }
}
