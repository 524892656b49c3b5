// Commands that are run: version, show product, show opmode, show console, show bootenv,
// show oem, network info, flash info, flash analyze, show klog.
#include "device/device_state.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <regex>

#include "device/failure.h"

namespace {

std::string trimmed(const std::string& text) {
  const size_t begin = text.find_first_not_of(" \t");
  return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

template <typename Number>
std::optional<Number> number_of(const std::string& text, int base) {
  Number number = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (result.ec != std::errc() || result.ptr != text.data() + text.size()) {
    return std::nullopt;
  }
  return number;
}

// "-" is what a listing shows where nothing is known.
std::string known(const std::string& text) {
  return text == "-" ? "" : text;
}

std::vector<std::string> words_of(const std::string& line) {
  std::vector<std::string> words;
  for (size_t at = line.find_first_not_of(' '); at != std::string::npos;) {
    const size_t end = std::min(line.find(' ', at), line.size());
    words.push_back(line.substr(at, end - at));
    at = line.find_first_not_of(' ', end);
  }
  return words;
}

// The lines of `text` that a regular expression may see: its stack grows with the line, and a line that is
// disturbed may bring anything. What the shell prints is shorter.
std::vector<std::string> short_lines(const std::string& text) {
  constexpr size_t longest = 250;
  std::vector<std::string> lines = text_lines(text);
  std::erase_if(lines, [](const std::string& line) { return line.size() > longest; });
  return lines;
}

// Lines of the form "LABEL<separator>VALUE".
std::map<std::string, std::string> labelled(const std::string& text, const std::string& separator) {
  std::map<std::string, std::string> values;
  for (const std::string& line : text_lines(text)) {
    if (const size_t at = line.find(separator); at != std::string::npos) {
      values[trimmed(line.substr(0, at))] = trimmed(line.substr(at + separator.size()));
    }
  }
  return values;
}

void take_version(device_state& state, const std::string& text) {
  for (const std::string& line : text_lines(text)) {
    if (line.find("Recovery Loader v") != std::string::npos) {
      state.shell_version = line;
    }
  }
}

void take_product(device_state& state, const std::string& text) {
  const auto values = labelled(text, ": ");
  const auto value = [&values](const char* label) {
    const auto found = values.find(label);
    return found == values.end() || found->second == "<not set>" ? std::string() : found->second;
  };
  state.product_id = value("Product ID");
  state.hardware_configuration = value("Product HWCFG");
  state.has_product = values.contains("Product ID");
  for (int i = 0; state.has_product && i < 6; ++i) {
    state.mac_addresses.push_back(value(std::to_string(i).c_str()));
  }
}

void take_mode(device_state& state, const std::string& text) {
  auto values = labelled(text, ":");
  state.board = values["Board"];
  state.io = values["I/O"];
  state.serial_ports = number_of<unsigned>(values["# Serial"], 10).value_or(0);
}

void take_console(device_state& state, const std::string& text) {
  auto values = labelled(text, ":");
  for (const auto& [label, key] :
       {std::pair("Device", "device"), std::pair("Mode", "mode"), std::pair("Speed", "speed"),
        std::pair("Flow", "flow"), std::pair("Term", "term")}) {
    if (values.contains(label)) {
      state.console[key] = values[label];
    }
  }
}

void take_network(device_state& state, const std::string& text) {
  static const std::regex heading(R"(^\s*(\S+): \((up|down)\)$)");
  std::smatch match;
  for (const std::string& line : short_lines(text)) {
    if (std::regex_match(line, match, heading)) {
      state.network["interface"] = match[1];
      state.network["state"] = match[2];
    }
  }
  for (const auto& [label, value] : labelled(text, " : ")) {
    state.network[label] = value.starts_with('<') ? "" : value;
  }
}

void take_environment(device_state& state, const std::string& text) {
  for (const std::string& line : text_lines(text)) {
    state.environment_is_default =
        state.environment_is_default || line.starts_with("Cannot read environment");
    const size_t at = line.find('=');
    if (at != std::string::npos && at > 0 && line.find(' ') > at && !line.starts_with("ERROR")) {
      state.environment[line.substr(0, at)] = line.substr(at + 1);
    }
  }
}

void take_oem(device_state& state, const std::string& text) {
  static const std::regex address(R"(^OEM Ethernet address: (.*)$)");
  static const std::regex size(R"(^OEM Defaults File: Present, size=0x[0-9a-f]+ \((\d+)\)$)");
  std::smatch match;
  for (const std::string& line : short_lines(text)) {
    if (std::regex_match(line, match, address)) {
      state.oem_mac_address = match[1];
    } else if (std::regex_match(line, match, size)) {
      state.oem_defaults_size = number_of<uint64_t>(match[1], 10);
    }
  }
}

// The columns of `flash info` have fixed places, and their texts have blanks inside.
void take_flash_info(device_state& state, const std::string& text) {
  static const std::regex row(
      R"(^(\S+)\s+(\S+)\s+(\S+)\s+(\S.*?)\s{2,}(\S.*?)\s+([-12S?])\s+([TF])\s+([TF])\s+([TF])\s*$)");
  std::smatch match;
  for (const std::string& line : short_lines(text)) {
    if (!std::regex_match(line, match, row)) {
      continue;
    }
    flash_row found;
    found.type = match[1];
    found.node = match[2];
    found.name = match[3];
    found.format = trimmed(match[4]);
    found.image = trimmed(match[5]);
    found.bank = match[6] == "S" ? "single" : known(match[6]);
    found.is_protected = match[7] == "T";
    found.t_flag = match[8] == "T";
    found.is_cleaned = match[9] == "T";
    state.flash.push_back(found);
  }
}

flash_row* row_named(device_state& state, const std::string& name) {
  const auto found = std::find_if(state.flash.begin(), state.flash.end(),
                                  [&name](const flash_row& row) { return row.name == name; });
  return found == state.flash.end() ? nullptr : &*found;
}

// partition name bk status version pc size-hex crc-hex
void take_analysis(device_state& state, const std::string& text) {
  for (const std::string& line : text_lines(text)) {
    const std::vector<std::string> words = words_of(line);
    flash_row* row = words.size() == 8 ? row_named(state, words[1]) : nullptr;
    if (row == nullptr || words[0] != row->node) {
      continue;
    }
    row->status = known(words[3]);
    row->version = known(words[4]);
    row->product_code = known(words[5]);
    row->used = number_of<uint64_t>(words[6], 16);
    row->checksum = number_of<uint32_t>(words[7], 16);
  }
}

// "0x000000000000-0x000000020000 : "bootstrap"", the erase blocks of the NAND flash, those of UBI.
void take_kernel_log(device_state& state, const std::string& text) {
  static const std::regex partition(R"re(0x([0-9a-f]+)-0x([0-9a-f]+) : "([^"]+)")re");
  static const std::regex nand_block(R"(nand: .*erase size: (\d+) KiB)");
  static const std::regex ubi_block(R"(ubi0: PEB size: (\d+) bytes.*LEB size: (\d+) bytes)");
  std::smatch match;
  for (const std::string& line : short_lines(text)) {
    if (std::regex_search(line, match, partition)) {
      const auto begin = number_of<uint64_t>(match[1], 16);
      const auto end = number_of<uint64_t>(match[2], 16);
      flash_row* row = row_named(state, match[3]);
      if (row != nullptr && begin && end && *end > *begin) {
        row->start = begin;
        row->size = *end - *begin;
      }
    } else if (std::regex_search(line, match, ubi_block)) {
      state.leb_size = number_of<uint32_t>(match[2], 10);
      if (flash_row* row = row_named(state, "ubi0")) {
        row->erase_block = number_of<uint32_t>(match[1], 10);
      }
    } else if (std::regex_search(line, match, nand_block)) {
      if (flash_row* row = row_named(state, "ubi0"); row != nullptr && !row->erase_block) {
        row->erase_block = number_of<uint32_t>(match[1], 10).value_or(0) * 1024;
      }
    }
  }
}

std::optional<uint64_t> size_with_unit(const std::string& text) {
  if (text.empty()) {
    return std::nullopt;
  }
  const char unit = text.back();
  const uint64_t factor = unit == 'k' || unit == 'K'   ? uint64_t{1} << 10
                          : unit == 'm' || unit == 'M' ? uint64_t{1} << 20
                          : unit == 'g' || unit == 'G' ? uint64_t{1} << 30
                                                       : 1;
  const bool is_hex = text.starts_with("0x") || text.starts_with("0X");
  const std::string digits =
      text.substr(is_hex ? 2 : 0, text.size() - (factor > 1 ? 1 : 0) - (is_hex ? 2 : 0));
  const auto number = number_of<uint64_t>(digits, is_hex ? 16 : 10);
  return number ? std::optional(*number * factor) : std::nullopt;
}

// "mtdparts=CHIP:SIZE[@START](NAME)[ro],...;CHIP:..." fills in what the kernel's log no longer holds.
void take_mtdparts(device_state& state) {
  const auto found = state.environment.find("mtdparts");
  if (found == state.environment.end()) {
    return;
  }
  static const std::regex entry(R"(([0-9a-fA-FxX]+[kKmMgG]?)(?:@([0-9a-fA-FxX]+[kKmMgG]?))?\(([^)]*)\))");
  constexpr size_t longest = 1024;  // a kernel of the device takes no longer command line
  std::string text = found->second.substr(0, longest);
  text.erase(0, text.starts_with("mtdparts=") ? 9 : 0);
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = std::min(text.find(';', begin), text.size());
    const std::string chip = text.substr(begin, end - begin);
    uint64_t place = 0;
    for (std::sregex_iterator match(chip.begin(), chip.end(), entry), last; match != last; ++match) {
      const auto size = size_with_unit((*match)[1]);
      place = size_with_unit((*match)[2]).value_or(place);
      flash_row* row = row_named(state, (*match)[3]);
      if (row != nullptr && size && (!row->size || row->name == "ubi0")) {
        row->start = row->start ? row->start : place;
        row->size = size;
      }
      place += size.value_or(0);
    }
    begin = end + 1;
  }
}

// The analysis shows the size of the UBI partition in every case, and of a volume that it could look into.
void take_sizes(device_state& state) {
  for (flash_row& row : state.flash) {
    if (row.name == "ubi0" && row.used) {
      row.size = row.size.value_or(*row.used);
    }
    if (row.is_volume() && row.used) {
      row.size = row.used;
    }
  }
}

}  // namespace

const flash_row* device_state::row(const std::string& name) const {
  const auto found =
      std::find_if(flash.begin(), flash.end(), [&name](const flash_row& row) { return row.name == name; });
  return found == flash.end() ? nullptr : &*found;
}

std::string device_state::active_bank() const {
  const auto found = environment.find("bootbank");
  const std::string bank = found == environment.end() ? "" : found->second;
  return bank == "2" || bank == "single" ? bank : "1";
}

// The device says so in the rows of the volumes: those of an erased partition are clean without a look
// inside.
bool device_state::ubi_is_clean() const {
  const auto is_clean = [](const flash_row& row) { return row.is_volume() && row.status == "clean"; };
  return std::any_of(flash.begin(), flash.end(), is_clean);
}

void device_read_flash(shell_session& shell, milliseconds limit, device_state& state) {
  const answer analysis = shell.run("flash analyze", limit * 4);
  if (answer_kind_of(analysis) == answer_kind::unknown_command) {
    throw device_failure(status_device_failed, "the shell does not know 'flash analyze'");
  }
  take_analysis(state, analysis.text);
  take_sizes(state);
}

device_state device_read(shell_session& shell, milliseconds limit,
                         const std::function<void(const std::string&)>& says) {
  device_state state;
  const auto ask = [&](const char* command) {
    if (says) {
      says(command);
    }
    return shell.run(command, limit).text;
  };
  take_version(state, ask("version"));
  take_product(state, ask("show product"));
  take_mode(state, ask("show opmode"));
  take_console(state, ask("show console"));
  take_environment(state, ask("show bootenv"));
  take_oem(state, ask("show oem"));
  take_network(state, ask("network info"));
  take_flash_info(state, ask("flash info"));
  if (state.flash.empty()) {
    throw device_failure(status_device_failed, "the device shows no partitions ('flash info')");
  }
  if (says) {
    says("flash analyze");
  }
  device_read_flash(shell, limit, state);
  take_kernel_log(state, ask("show klog"));
  take_mtdparts(state);
  take_sizes(state);
  return state;
}
