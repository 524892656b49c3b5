// Reading a description with toml++, which knows the line of every value and every duplicate key; CLI11's own
// reader knows neither. All keys are checked: a misspelt one is an error.
#include "kesto/description.h"

#include <fcntl.h>
#include <unistd.h>

#include <toml++/toml.h>
#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "image/header.h"
#include "kesto/report.h"
#include "util/unique_fd.h"

namespace {

constexpr size_t most_bytes = 1 << 20;  // an image given in place of a description is not to fill the memory

// Result: nothing after an error.
std::optional<std::string> read_text(const char* path) {
  const unique_fd file(open(path, O_RDONLY | O_CLOEXEC));
  if (!file) {
    report_error("%s: open error (%s)", path, strerror(errno));
    return std::nullopt;
  }
  std::string text;
  char piece[4096];
  ssize_t count;
  while ((count = read(file.get(), piece, sizeof piece)) > 0) {
    text.append(piece, static_cast<size_t>(count));
    if (text.size() > most_bytes) {
      report_error("%s: too large for a description", path);
      return std::nullopt;
    }
  }
  if (count < 0) {
    report_error("%s: read error (%s)", path, strerror(errno));
    return std::nullopt;
  }
  return text;
}

// Thrown at the first fault, where it is known which line it is in.
class bad_description : public std::runtime_error {
 public:
  bad_description(const toml::source_region& place, const std::string& what)
      : std::runtime_error(what), line_(place.begin.line) {}
  unsigned line() const { return line_; }

 private:
  unsigned line_;
};

std::string quoted(std::string_view text) {
  return "'" + std::string(text) + "'";
}

std::string take_text(const toml::node& value, const char* key) {
  const auto* text = value.as_string();
  if (text == nullptr || text->get().find('\0') != std::string::npos) {
    throw bad_description(value.source(), std::string(key) + " is a text");
  }
  return text->get();
}

uint32_t take_number(const toml::node& value, const char* key) {
  const auto* number = value.as_integer();
  if (number == nullptr || number->get() < 0 || number->get() > int64_t{UINT32_MAX}) {
    throw bad_description(value.source(), std::string(key) + " is a number from 0 to 4294967295");
  }
  return static_cast<uint32_t>(number->get());
}

bool take_trait(std::string_view key, const toml::node& value, part_traits* traits) {
  if (key == "version") {
    const std::string text = take_text(value, "version");
    if (!part_version_from_text(text.c_str(), traits)) {
      throw bad_description(value.source(), "bad version " + quoted(text) + ", one like 3.1.0.0R1 is wanted");
    }
    return true;
  }
  if (key == "code") {
    const std::string text = take_text(value, "code");
    if (!part_product_code_from_text(text.c_str(), traits)) {
      throw bad_description(value.source(),
                            "bad product code " + quoted(text) + ", two printable characters are wanted");
    }
    return true;
  }
  return false;
}

uint32_t take_type(const toml::node& value) {
  if (value.is_integer()) {
    return take_number(value, "type");
  }
  const std::string name = take_text(value, "type");
  uint32_t type;
  if (!part_type_from_text(name.c_str(), &type)) {
    throw bad_description(value.source(), "unknown contents type " + quoted(name));
  }
  return type;
}

std::vector<uint8_t> take_hexadecimal(const toml::node& value) {
  const std::string text = take_text(value, "a piece of header-bytes");
  std::vector<uint8_t> bytes;
  for (size_t i = 0; i < text.size(); i += 2) {
    if (isxdigit(static_cast<unsigned char>(text[i])) == 0 || i + 1 == text.size() ||
        isxdigit(static_cast<unsigned char>(text[i + 1])) == 0) {
      throw bad_description(value.source(), "pairs of hexadecimal digits are wanted, not " + quoted(text));
    }
    bytes.push_back(static_cast<uint8_t>(std::stoi(text.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

std::vector<header_bytes> take_header_bytes(const toml::node& value) {
  const toml::table* table = value.as_table();
  if (table == nullptr) {
    throw bad_description(value.source(), "header-bytes is a table of offsets and hexadecimal digits");
  }
  std::vector<header_bytes> pieces;
  for (const auto& [key, digits] : *table) {
    header_bytes piece;
    if (!part_size_from_text(std::string(key.str()).c_str(), &piece.offset)) {
      throw bad_description(key.source(), quoted(key.str()) + " is no offset in a header");
    }
    piece.bytes = take_hexadecimal(digits);
    for (uint64_t i = 0; i < piece.bytes.size(); ++i) {
      const uint64_t offset = piece.offset + i;
      if (offset >= image_header_size || !part_header_byte_is_free(static_cast<uint32_t>(offset))) {
        throw bad_description(key.source(), "byte " + std::to_string(offset) + " of a header is not free");
      }
    }
    pieces.push_back(std::move(piece));
  }
  return pieces;
}

// Reads the tables of one description.
class description_reader {
 public:
  description_reader(const char* path, const part_traits& defaults) : defaults_(defaults) {
    const std::string_view whole(path);
    if (const size_t slash = whole.rfind('/'); slash != std::string_view::npos) {
      directory_ = whole.substr(0, slash + 1);
    }
  }

  std::vector<part_order> read(const toml::table& description) {
    const toml::array* parts = nullptr;
    for (const auto& [key, value] : description) {
      if (key.str() == "part") {
        parts = value.as_array();
        if (parts == nullptr) {
          throw bad_description(value.source(), "parts are written [[part]]");
        }
      } else if (!take_trait(key.str(), value, &defaults_)) {
        throw bad_description(key.source(), "unknown key " + quoted(key.str()));
      }
    }
    if (parts == nullptr || parts->empty()) {
      throw bad_description(description.source(), "no [[part]]");
    }
    if (parts->size() > description_most_parts) {
      throw bad_description(parts->source(),
                            "more than " + std::to_string(description_most_parts) + " parts");
    }
    std::vector<part_order> orders;
    for (const toml::node& part : *parts) {
      if (!part.is_table()) {
        throw bad_description(part.source(), "parts are written [[part]]");
      }
      orders.push_back(read_part(*part.as_table()));
    }
    return orders;
  }

 private:
  part_order read_part(const toml::table& table) const {
    part_order order;
    order.traits = defaults_;
    bool has_type = false;
    bool has_file = false;
    const toml::node* size = nullptr;
    for (const auto& [key, value] : table) {
      if (key.str() == "type") {
        order.type = take_type(value);
        has_type = true;
      } else if (key.str() == "file") {
        order.path = take_text(value, "file");
        order.path = order.path.starts_with('/') ? order.path : directory_ + order.path;
        has_file = true;
      } else if (key.str() == "empty") {
        if (!value.is_boolean()) {
          throw bad_description(value.source(), "empty is true or false");
        }
        order.is_empty = value.as_boolean()->get();
      } else if (key.str() == "rootfs-size-kib") {
        order.traits.rootfs_size_kib = take_number(value, "rootfs-size-kib");
        size = &value;
      } else if (key.str() == "total-size-kib") {
        order.traits.total_size_kib = take_number(value, "total-size-kib");
        size = &value;
      } else if (key.str() == "header-bytes") {
        order.more_bytes = take_header_bytes(value);
      } else if (!take_trait(key.str(), value, &order.traits)) {
        throw bad_description(key.source(), "unknown key " + quoted(key.str()));
      }
    }
    if (!has_type) {
      throw bad_description(table.source(), "the part has no type");
    }
    if (has_file == order.is_empty) {
      throw bad_description(table.source(),
                            has_file ? "the part is empty and has a file" : "the part has no file");
    }
    if (size != nullptr && !part_is_rootfs(order.type)) {
      throw bad_description(size->source(), "sizes are for root file systems");
    }
    return order;
  }

  part_traits defaults_;
  std::string directory_;
};

void append(std::string* text, const char* format, ...) __attribute__((format(printf, 2, 3)));

void append(std::string* text, const char* format, ...) {
  char line[1024];
  va_list args;
  va_start(args, format);
  vsnprintf(line, sizeof line, format, args);
  va_end(args);
  *text += line;
}

void append_part(const part_order& order, std::string* text) {
  *text += "\n[[part]]\n";
  const char* name = part_short_name(order.type);
  if (name != nullptr) {
    append(text, "type = \"%s\"\n", name);
  } else {
    append(text, "type = %u\n", order.type);
  }
  if (order.is_empty) {
    *text += "empty = true\n";
  } else {
    append(text, "file = \"%s\"\n", order.path.c_str());
  }
  char version[32];
  if (image_get_version_string(order.traits.version, version, sizeof version)) {
    append(text, "version = \"%s\"\n", version);
  }
  char code[4];
  if (image_get_product_code_string(order.traits.product_code, code, sizeof code)) {
    *text += "code = \"";
    for (const char* character = code; *character != '\0'; ++character) {
      *text += *character == '"' || *character == '\\' ? std::string("\\") + *character
                                                       : std::string(1, *character);
    }
    *text += "\"\n";
  }
  if (order.traits.rootfs_size_kib != 0) {
    append(text, "rootfs-size-kib = %u\n", order.traits.rootfs_size_kib);
  }
  if (order.traits.total_size_kib != 0) {
    append(text, "total-size-kib = %u\n", order.traits.total_size_kib);
  }
  if (!order.more_bytes.empty()) {
    *text += "[part.header-bytes]\n";
    for (const header_bytes& piece : order.more_bytes) {
      append(text, "%u = \"", piece.offset);
      for (const uint8_t byte : piece.bytes) {
        append(text, "%02x", byte);
      }
      *text += "\"\n";
    }
  }
}

}  // namespace

bool description_read(const char* path, const part_traits& defaults, std::vector<part_order>* parts) {
  const std::optional<std::string> text = read_text(path);
  if (!text) {
    return false;
  }
  try {
    const std::vector<part_order> read = description_reader(path, defaults).read(toml::parse(*text));
    parts->insert(parts->end(), read.begin(), read.end());
    return true;
  } catch (const toml::parse_error& error) {
    report_error("%s:%u: %s", path, static_cast<unsigned>(error.source().begin.line),
                 std::string(error.description()).c_str());
  } catch (const bad_description& error) {
    report_error("%s:%u: %s", path, error.line(), error.what());
  }
  return false;
}

std::string description_text(const std::vector<part_order>& parts) {
  std::string text = "# For 'kesto image build -o OUT --description THIS_FILE'.\n";
  for (const part_order& part : parts) {
    append_part(part, &text);
  }
  return text;
}
