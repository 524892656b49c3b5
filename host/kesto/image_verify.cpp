// kesto image verify: would the device take this image?
#include <cinttypes>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include "kesto/image_file.h"
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

bool has_right_checksum(const image_file& image, const image_part& part) {
  uint32_t checksum;
  if (!image.sum_contents(part, &checksum)) {
    return false;
  }
  const uint32_t expected = part.get(image_field_contents_checksum);
  return checksum == expected ||
         image.fault(part, "contents checksum is 0x%08" PRIX32 ", the header says 0x%08" PRIX32, checksum,
                     expected);
}

// A device that receives the image as a stream knows its end by the flag only.
bool has_right_flag(const image_file& image, const image_part& part) {
  const bool more = part.get(image_field_next_header_flag) != 0;
  const uint64_t left = image.size() - part.end();
  if (more && left == 0) {
    return image.fault(part, "promises another part, but the file ends");
  }
  if (!more && left != 0) {
    return image.fault(part, "says that it is the last one, but %" PRIu64 " bytes follow", left);
  }
  return true;
}

bool verify_part(const image_file& image, image_part& part) {
  return image.take_header(part) && has_destination(image, part) && image.holds_contents(part) &&
         has_right_checksum(image, part) && has_right_flag(image, part);
}

int run(const std::string& path) {
  image_file image;
  if (!image.open(path.c_str())) {
    return exit_failed;
  }
  const unsigned parts = image.visit_parts(verify_part);
  if (parts == 0) {
    return exit_failed;
  }
  printf("%s: OK, %u %s, %" PRIu64 " bytes\n", path.c_str(), parts, parts == 1 ? "part" : "parts",
         image.size());
  return exit_success;
}

std::function<int()> declare(CLI::App& line) {
  const auto path = std::make_shared<std::string>();
  line.add_option("IMAGE", *path)->required();
  return [path] { return run(*path); };
}

}  // namespace

const subcommand image_verify = {
    .name = "image verify",
    .arguments = "IMAGE",
    .purpose = "Check an image as the device would",
    .text =
        "Checks what the device checks: header, destination, length and checksum of every part, and that the flag\n"
        "for another part is set on all parts but the last. Prints OK, or the first fault with the number of its\n"
        "part and the offset of that part, and ends with status 1. What depends on the device, the size of its\n"
        "erase blocks and the room in its partitions, is not checked.\n",
    .declare = declare,
};
