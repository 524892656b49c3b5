// One bar per chip, and one for the UBI partition's volumes.
#include "kesto/flash_picture.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

constexpr double margin = 24, bar_width = 1000, bar_height = 46, label_height = 17, narrow = 118;
// So many letters of a label fit into the picture, whatever they are.
constexpr size_t letters_of_a_line = 140;

// A place in a bar, in bytes.
struct piece {
  const flash_row* row = nullptr;  // null = not part of any row
  uint64_t start = 0;
  uint64_t size = 0;
  bool is_estimate = false;
};

struct bar {
  std::string title;
  std::vector<piece> pieces;
  uint64_t size = 0;
};

std::string escaped(const std::string& text) {
  std::string safe;
  for (const char c : text) {
    switch (c) {
      case '<':
        safe += "&lt;";
        break;
      case '>':
        safe += "&gt;";
        break;
      case '&':
        safe += "&amp;";
        break;
      case '"':
        safe += "&quot;";
        break;
      default:
        safe.push_back(c >= ' ' && c <= '~' ? c : '?');
    }
  }
  return safe;
}

std::string size_text(uint64_t bytes) {
  const double value = static_cast<double>(bytes);
  return bytes >= 1 << 20 ? fmt::format("{:.4g} MiB", value / (1 << 20))
                          : fmt::format("{:.4g} KiB", value / 1024);
}

const char* class_of(const piece& piece, const device_state& state) {
  if (piece.row == nullptr) {
    return "gap";
  }
  if (piece.row->status == "clean") {
    return "clean";
  }
  if (piece.row->status == "dirty") {
    return "dirty";
  }
  if (piece.row->status.empty()) {
    return "unknown";
  }
  return piece.row->bank.empty() ? "common" : piece.row->bank == state.active_bank() ? "active" : "inactive";
}

std::string contents_text(const flash_row& row) {
  std::string text = row.status.empty() ? "not looked at" : row.status;
  if (!row.version.empty()) {
    text = row.version + (row.product_code.empty() ? "" : " " + row.product_code) + ", " + text;
  }
  return text;
}

// The partitions of one chip in the order of their places. Where places are not known, one follows the other.
bar chip_bar(const device_state& state, const std::string& type) {
  bar made{.title = type + " flash", .pieces = {}, .size = 0};
  for (const flash_row& row : state.flash) {
    if (row.type == type && !row.is_volume() && row.size) {
      made.pieces.push_back({.row = &row,
                             .start = row.start.value_or(made.size),
                             .size = *row.size,
                             .is_estimate = !row.start});
      made.size = std::max(made.size, made.pieces.back().start + *row.size);
    }
  }
  std::sort(made.pieces.begin(), made.pieces.end(),
            [](const piece& a, const piece& b) { return a.start < b.start; });
  return made;
}

// Volumes stand in the order of the table: UBI gives them no place. One that the device did not look into has
// what is left over, in equal shares.
bar volume_bar(const device_state& state) {
  bar made{.title = "volumes of ubi0", .pieces = {}, .size = 0};
  const flash_row* whole = state.row("ubi0");
  uint64_t known_bytes = 0;
  uint64_t unknown = 0;
  for (const flash_row& row : state.flash) {
    if (row.is_volume()) {
      known_bytes += row.size.value_or(0);
      unknown += row.size ? 0 : 1;
    }
  }
  if (whole == nullptr || !whole->size || state.ubi_is_clean()) {
    return made;
  }
  made.size = std::max(*whole->size, known_bytes);
  const uint64_t share = unknown == 0 ? 0 : (made.size - known_bytes) / (unknown + 1);
  uint64_t place = 0;
  for (const flash_row& row : state.flash) {
    if (row.is_volume()) {
      const bool other_schema = row.status.empty();
      const uint64_t size = row.size.value_or(other_schema ? made.size / 200 : share);
      made.pieces.push_back({.row = &row, .start = place, .size = size, .is_estimate = !row.size});
      place += size;
    }
  }
  return made;
}

// Draws a bar. Result: the height that it takes, with what did not fit inside below it.
double draw(const bar& drawn, const device_state& state, double top, std::string& out) {
  out += fmt::format("<text class=\"title\" x=\"{}\" y=\"{}\">{}, {}</text>\n", margin, top + 14,
                     escaped(drawn.title), size_text(drawn.size));
  const double bar_top = top + 24;
  const double scale = bar_width / static_cast<double>(std::max<uint64_t>(drawn.size, 1));
  double below = bar_top + bar_height + 20;
  for (const piece& one : drawn.pieces) {
    const double left = margin + static_cast<double>(one.start) * scale;
    const double width = std::max(static_cast<double>(one.size) * scale, 1.5);
    const std::string name = escaped(one.row->name);
    const std::string size =
        (one.is_estimate && one.row->is_volume()) ? "size not known" : size_text(one.size);
    const std::string contents = escaped(contents_text(*one.row));
    out += fmt::format(
        "<g><title>{0}: {1}, {2}</title><rect class=\"{3}\" x=\"{4:.2f}\" y=\"{5:.2f}\" width=\"{6:.2f}\" "
        "height=\"{7}\"/>",
        name, size, contents, class_of(one, state), left, bar_top, width, bar_height);
    if (one.row->used && one.row->size && !one.row->is_volume() && one.row->name != "ubi0") {
      const double used = std::min(static_cast<double>(*one.row->used) * scale, width);
      out += fmt::format("<rect class=\"used\" x=\"{:.2f}\" y=\"{:.2f}\" width=\"{:.2f}\" height=\"5\"/>",
                         left, bar_top + bar_height - 5, used);
    }
    if (width >= narrow) {
      out += fmt::format(
          "<text x=\"{0:.2f}\" y=\"{1:.2f}\">{2}</text><text class=\"small\" x=\"{0:.2f}\" y=\"{3:.2f}\">{4}</text>",
          left + 6, bar_top + 18, name, bar_top + 34, contents);
    } else {
      const double middle = left + width / 2;
      // Towards the right edge there is no room behind the lead.
      const bool before = middle > margin + 0.75 * bar_width;
      const double way = before ? -1 : 1;
      out += fmt::format(
          "<path class=\"lead\" d=\"M{0:.2f} {1:.2f}V{2:.2f}H{3:.2f}\"/><text class=\"small\" x=\"{4:.2f}\" "
          "y=\"{5:.2f}\"{6}>{7} ({8}): {9}</text>",
          middle, bar_top + bar_height, below - 4, middle + way * 10, middle + way * 14, below,
          before ? " text-anchor=\"end\"" : "", name, size, contents);
      below += label_height;
    }
    out += "</g>\n";
  }
  return below + 16 - top;
}

constexpr const char* style =
    "<style>\n"
    "svg{background:#fff;color:#1a1a1a}\n"
    "text{font:13px sans-serif;fill:currentColor}.title{font-weight:bold;font-size:15px}.small{font-size:12px}\n"
    "rect{stroke:currentColor;stroke-width:1}.lead{fill:none;stroke:currentColor;stroke-width:.7}\n"
    ".active{fill:#7cc98a}.inactive{fill:#9dbfe6}.common{fill:#d9c8ee}.clean{fill:none}.dirty{fill:#f0a58f}\n"
    ".unknown{fill:#c4c4c4;fill-opacity:.5}.gap{fill:none}.used{fill:currentColor;fill-opacity:.55;stroke:none}\n"
    "@media (prefers-color-scheme:dark){svg{background:#16181c;color:#ececec}.active{fill:#2c7a3f}"
    ".inactive{fill:#2f5b8f}.common{fill:#5f4788}.dirty{fill:#94402b}.unknown{fill:#666}}\n"
    "</style>\n";

std::string legend(double top, const std::string& bank) {
  std::string out;
  double left = margin;
  const std::pair<const char*, std::string> rows[] = {{"active", fmt::format("boots (bank {})", bank)},
                                                      {"inactive", "other bank"},
                                                      {"common", "of no bank"},
                                                      {"dirty", "not recognised"},
                                                      {"clean", "erased"},
                                                      {"unknown", "not looked at"}};
  for (const auto& [name, text] : rows) {
    out += fmt::format(
        "<rect class=\"{}\" x=\"{}\" y=\"{}\" width=\"14\" height=\"14\"/><text class=\"small\" x=\"{}\" "
        "y=\"{}\">{}</text>\n",
        name, left, top, left + 20, top + 12, escaped(text));
    left += 165;
  }
  return out;
}

}  // namespace

std::string flash_picture(const device_state& state) {
  std::string body;
  double top = margin;
  std::vector<std::string> types;
  for (const flash_row& row : state.flash) {
    if (!row.is_volume() && std::find(types.begin(), types.end(), row.type) == types.end()) {
      types.push_back(row.type);
    }
  }
  for (const std::string& type : types) {
    const bar drawn = chip_bar(state, type);
    if (!drawn.pieces.empty()) {
      top += draw(drawn, state, top, body);
    }
  }
  const bar volumes = volume_bar(state);
  if (!volumes.pieces.empty()) {
    top += draw(volumes, state, top, body);
  }
  std::string line = "Size not known:";
  bool any = false;
  const auto end_line = [&] {
    body +=
        fmt::format("<text class=\"small\" x=\"{}\" y=\"{}\">{}</text>\n", margin, top + 12, escaped(line));
    top += label_height;
    line.clear();
  };
  for (const flash_row& row : state.flash) {
    if (!row.is_volume() && !row.size) {
      const std::string entry = fmt::format(" {} ({})", row.name, contents_text(row));
      line += any ? "," : "";
      if (line.size() + entry.size() > letters_of_a_line) {
        end_line();
      }
      line += entry;
      any = true;
    }
  }
  if (any) {
    end_line();
    top += 26 - label_height;
  }
  body += legend(top, state.active_bank());
  const double width = bar_width + 2 * margin;
  const double height = top + 14 + margin;
  return fmt::format(
      "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 {0} {1:.0f}\" width=\"{0}\" height=\"{1:.0f}\" "
      "role=\"img\">\n<title>Flash of {2}</title>\n{3}{4}</svg>\n",
      width, height, escaped(state.product_id.empty() ? "a device" : state.product_id), style, body);
}
