// kesto image info: what the headers of an image say.
#include <cinttypes>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include "kesto/image_file.h"
#include "kesto/image_json.h"
#include "kesto/report.h"
#include "kesto/subcommand.h"

namespace {

void print_size(const char* name, uint32_t kib) {
  if (kib == 0) {
    printf("  %s: default\n", name);
  } else {
    printf("  %s: %" PRIu32 " KiB\n", name, kib);
  }
}

// The device's own summary, and the fields that it leaves out.
void print_part(const image_part& part) {
  printf("Part %u at offset %" PRIu64 ":\n", part.number, part.offset);
  image_print_info(part.header);
  printf("  Next Header Flag: %" PRIu32 "\n", part.get(image_field_next_header_flag));
  print_size("Rootfs Size", part.get(image_field_rootfs_size_kib));
  print_size("Total Size", part.get(image_field_total_size_kib));
}

bool show_part(const image_file& image, image_part& part) {
  if (!image.take_header(part)) {
    return false;
  }
  print_part(part);
  return image.holds_contents(part);
}

int run_image_info(const std::string& path, bool json) {
  image_file image;
  if (!image.open(path.c_str())) {
    return exit_failed;
  }
  if (json) {
    const auto holds_contents = [](const image_file& file, image_part& part) {
      return file.holds_contents(part);
    };
    return image_json_report(image, holds_contents) ? exit_success : exit_failed;
  }
  return image.visit_parts(show_part) != 0 ? exit_success : exit_failed;
}

std::function<int()> declare_image_info(CLI::App& line) {
  const auto path = std::make_shared<std::string>();
  line.add_option("IMAGE", *path)->required();
  const auto json = std::make_shared<bool>();
  line.add_flag("--json", *json, "one line of JSON; docs/kesto-json.md lists its keys")->group("Output");
  return [path, json] { return run_image_info(*path, *json); };
}

}  // namespace

const subcommand image_info = {
    .name = "image info",
    .arguments = "[--json] IMAGE",
    .purpose = "Show the headers of an image",
    .text =
        "Prints the headers of all parts in the words of the device, with the flag that another part follows and\n"
        "the sizes that a root file system wants. Contents are not looked at. Ends with status 1 at a header that\n"
        "the device would not accept, or where the file ends inside a part.\n",
    .declare = declare_image_info,
};
