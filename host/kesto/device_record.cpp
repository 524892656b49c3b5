// Reading a device's record. Every value is checked: the file was written by a program, but not always by
// this one.
#include "kesto/device_record.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include "kesto/report.h"

namespace {

constexpr std::streamoff most_bytes = 1 << 20;

// Thrown with the place and the fault.
class bad_record : public std::runtime_error {
 public:
  bad_record(const std::string& place, const char* what) : std::runtime_error(place + ": " + what) {}
};

// Results: null or nothing when the key is missing or null.
const nlohmann::json* find(const nlohmann::json& object, const char* key) {
  const auto found = object.find(key);
  return found == object.end() || found->is_null() ? nullptr : &*found;
}

std::string take_text(const nlohmann::json& object, const std::string& place, const char* key) {
  const nlohmann::json* value = find(object, key);
  if (value == nullptr) {
    return "";
  }
  if (!value->is_string()) {
    throw bad_record(place + "." + key, "a text is wanted");
  }
  return value->get<std::string>();
}

template <typename Number>
std::optional<Number> take_number(const nlohmann::json& object, const std::string& place, const char* key) {
  const nlohmann::json* value = find(object, key);
  if (value == nullptr) {
    return std::nullopt;
  }
  if (!value->is_number_unsigned() || value->get<uint64_t>() > std::numeric_limits<Number>::max()) {
    throw bad_record(place + "." + key, "a number from 0 is wanted");
  }
  return value->get<Number>();
}

const nlohmann::json& take_object(const nlohmann::json& value, const std::string& place) {
  if (!value.is_object()) {
    throw bad_record(place, "an object is wanted");
  }
  return value;
}

// Calls `take` with every object of an array and its place.
template <typename Take>
void take_each(const nlohmann::json& array, const std::string& place, Take take) {
  if (!array.is_array()) {
    throw bad_record(place, "an array is wanted");
  }
  for (size_t i = 0; i < array.size(); ++i) {
    const std::string element = place + "[" + std::to_string(i) + "]";
    take(take_object(array[i], element), element);
  }
}

std::string take_name(const nlohmann::json& object, const std::string& place) {
  std::string name = take_text(object, place, "name");
  if (name.empty()) {
    throw bad_record(place + ".name", "a name is wanted");
  }
  return name;
}

device_partition take_partition(const nlohmann::json& row, const std::string& place) {
  return {
      .name = take_name(row, place),
      .status = take_text(row, place, "status"),
      .version = take_text(row, place, "version"),
      .code = take_text(row, place, "code"),
      .size = take_number<uint64_t>(row, place, "size"),
      .erase_block = take_number<uint32_t>(row, place, "erase_block"),
  };
}

device_record take_record(const nlohmann::json& document) {
  take_object(document, "the record");
  if (const nlohmann::json* format = find(document, "format"); format == nullptr || *format != 1) {
    throw bad_record("format", "1 is wanted");
  }
  device_record record;
  const nlohmann::json* flash = find(document, "flash");
  if (flash == nullptr) {
    throw bad_record("flash", "an array is wanted");
  }
  take_each(*flash, "flash", [&record](const nlohmann::json& row, const std::string& place) {
    record.flash.push_back(take_partition(row, place));
  });
  const nlohmann::json* bootenv = find(document, "bootenv");
  if (bootenv == nullptr) {
    throw bad_record("bootenv", "an object is wanted");
  }
  record.active_bank =
      mtd_bank_from_word(take_text(take_object(*bootenv, "bootenv"), "bootenv", "bootbank").c_str());
  const nlohmann::json* ubi = find(document, "ubi");
  const nlohmann::json* ubi0 = ubi == nullptr ? nullptr : find(take_object(*ubi, "ubi"), "ubi0");
  if (ubi0 == nullptr) {
    return record;
  }
  take_object(*ubi0, "ubi.ubi0");
  record.leb_size = take_number<uint64_t>(*ubi0, "ubi.ubi0", "leb_size");
  record.available = take_number<uint64_t>(*ubi0, "ubi.ubi0", "available");
  if (const nlohmann::json* volumes = find(*ubi0, "volumes")) {
    take_each(*volumes, "ubi.ubi0.volumes", [&record](const nlohmann::json& row, const std::string& place) {
      record.volumes.push_back({take_name(row, place), take_number<uint64_t>(row, place, "reserved_ebs"),
                                take_number<uint64_t>(row, place, "size")});
    });
  }
  return record;
}

template <typename Row>
const Row* find_row(const std::vector<Row>& rows, const char* name) {
  for (const Row& row : rows) {
    if (row.name == name) {
      return &row;
    }
  }
  return nullptr;
}

}  // namespace

const device_partition* device_record::partition(const char* name) const {
  return find_row(flash, name);
}

const device_volume* device_record::volume(const char* name) const {
  return find_row(volumes, name);
}

std::optional<device_record> device_record_from_json(const nlohmann::json& document, std::string* fault) {
  try {
    return take_record(document);
  } catch (const bad_record& error) {
    *fault = error.what();
    return std::nullopt;
  }
}

std::optional<device_record> device_record_read(const char* path) {
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  std::string text;
  char piece[4096];
  while (file.good() && static_cast<std::streamoff>(text.size()) <= most_bytes) {
    file.read(piece, sizeof piece);
    text.append(piece, static_cast<size_t>(file.gcount()));
  }
  if (!file.eof()) {
    if (errno != 0) {
      report_error("%s: %s error (%s)", path, file.is_open() ? "read" : "open", strerror(errno));
    } else {
      report_error("%s: too large for a device's record", path);
    }
    return std::nullopt;
  }
  std::string fault;
  try {
    if (std::optional<device_record> record = device_record_from_json(nlohmann::json::parse(text), &fault)) {
      return record;
    }
    report_error("%s: %s", path, fault.c_str());
  } catch (const nlohmann::json::parse_error& error) {
    report_error("%s: not JSON at offset %zu", path, error.byte);
  }
  return std::nullopt;
}
