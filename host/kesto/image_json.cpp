// Parts are printed as they are found, so that the memory for them does not grow with the image.
#include "kesto/image_json.h"

#include <cstdio>

#include "kesto/part.h"
#include "util/log.h"

namespace {

std::string hexadecimal(uint32_t number) {
  char text[9];
  snprintf(text, sizeof text, "%08x", number);
  return text;
}

}  // namespace

nlohmann::ordered_json image_part_json(const image_part& part) {
  const uint32_t type = part.get(image_field_contents_type);
  nlohmann::ordered_json json = {
      {"part", part.number},
      {"offset", part.offset},
      {"type", type},
      {"type_name", part_type_name(type)},
      {"length", part.length()},
      {"contents_checksum", hexadecimal(part.get(image_field_contents_checksum))},
      {"header_checksum", hexadecimal(part.get(image_field_header_checksum))},
      {"version", nullptr},
      {"code", nullptr},
      {"next_header_flag", part.get(image_field_next_header_flag)},
      {"rootfs_size_kib", part.get(image_field_rootfs_size_kib)},
      {"total_size_kib", part.get(image_field_total_size_kib)},
  };
  char text[32];
  if (image_get_version_string(part.header + image_field_contents_version, text, sizeof text)) {
    json["version"] = text;
  }
  if (image_get_product_code_string(part.header + image_field_product_code, text, sizeof text)) {
    json["code"] = text;
  }
  return json;
}

nlohmann::ordered_json image_fault_json(const image_fault& fault) {
  if (fault.text.empty()) {
    return nullptr;
  }
  nlohmann::ordered_json json = {
      {"part", fault.part}, {"offset", fault.offset}, {"text", fault.text}, {"device", nullptr}};
  if (!fault.device_text.empty()) {
    json["device"] = fault.device_text;
  }
  return json;
}

std::string json_line(const nlohmann::ordered_json& value) {
  return value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

bool image_json_report(image_file& image, const image_file::visitor& visit) {
  log_level = level_silent;  // the device's code has nothing to say between the braces
  image_fault fault;
  image.keep_faults(&fault);
  const nlohmann::ordered_json path = image.path();
  printf("{\"format\":1,\"image\":%s,\"size\":%s,\"parts\":[", json_line(path).c_str(),
         std::to_string(image.size()).c_str());
  const unsigned parts = image.visit_parts([&](const image_file& file, image_part& part) {
    if (!file.take_header(part)) {
      return false;
    }
    printf("%s%s", part.number == 0 ? "" : ",", json_line(image_part_json(part)).c_str());
    return visit(file, part);
  });
  if (parts == 0 && fault.text.empty()) {
    printf("\n");
    return false;
  }
  printf("],\"ok\":%s,\"fault\":%s}\n", parts != 0 ? "true" : "false",
         json_line(image_fault_json(fault)).c_str());
  return parts != 0;
}
