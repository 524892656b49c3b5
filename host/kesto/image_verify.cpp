// kesto image verify: would the device take this image?
#include <cinttypes>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include "kesto/image_file.h"
#include "kesto/image_json.h"
#include "kesto/part.h"
#include "kesto/report.h"
#include "kesto/subcommand.h"

namespace {

bool has_destination(const image_file& image, const image_part& part) {
  const uint32_t type = part.get(image_field_contents_type);
  return part_has_destination(type) ||
         image.fault(part, "the device has no place for contents of type %" PRIu32 " (%s)", type,
                     part_type_name(type));
}

// Of a part whose header is good already.
bool verify_contents(const image_file& image, image_part& part) {
  uint32_t checksum;
  return has_destination(image, part) && image.holds_contents(part) && image.sum_contents(part, &checksum) &&
         image.check_sum(part, checksum) && image.check_flag(part);
}

bool verify_part(const image_file& image, image_part& part) {
  return image.take_header(part) && verify_contents(image, part);
}

int run_image_verify(const std::string& path, bool json) {
  image_file image;
  if (!image.open(path.c_str())) {
    return exit_failed;
  }
  if (json) {
    return image_json_report(image, verify_contents) ? exit_success : exit_failed;
  }
  const unsigned parts = image.visit_parts(verify_part);
  if (parts == 0) {
    return exit_failed;
  }
  printf("%s: OK, %u %s, %" PRIu64 " bytes\n", path.c_str(), parts, parts == 1 ? "part" : "parts",
         image.size());
  return exit_success;
}

std::function<int()> declare_image_verify(CLI::App& line) {
  const auto path = std::make_shared<std::string>();
  line.add_option("IMAGE", *path)->required();
  const auto json = std::make_shared<bool>();
  line.add_flag("--json", *json, "one line of JSON; docs/kesto-json.md lists its keys")->group("Output");
  return [path, json] { return run_image_verify(*path, *json); };
}

}  // namespace

const subcommand image_verify = {
    .name = "image verify",
    .arguments = "[--json] IMAGE",
    .purpose = "Check an image as the device would",
    .text =
        "Checks what the device checks: header, destination, length and checksum of every part, and that the flag\n"
        "for another part is set on all parts but the last. Prints OK, or the first fault with the number of its\n"
        "part and the offset of that part, and ends with status 1. What depends on the device, the size of its\n"
        "erase blocks and the room in its partitions, is not checked.\n",
    .declare = declare_image_verify,
};
