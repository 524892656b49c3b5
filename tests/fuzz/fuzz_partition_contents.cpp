// What an analysis finds in a partition: byte 0 the kind, and whether the headers in the
// contents, which are the rest, are made good.
#include "analysis/partition_analysis.h"
#include "fuzz_image_input.h"
#include "mtd/partition_table.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  run_all_messages_silently();
  if (size == 0) {
    return 0;
  }
  // The kinds that are told by their bytes alone; the others run tools or ask the flash driver.
  constexpr int kinds[] = {mtd_image_bootstrap, mtd_image_bootloader, mtd_image_kernel,
                           mtd_image_config_loader};
  flash_analysis record = {};
  const image_input image(data + 1, size - 1);
  const uint8_t* contents = (data[0] & 4) != 0 ? image.data() : data + 1;
  flash_analyze(input_file(contents, size - 1).path(), kinds[data[0] % 4], mtd_format_uimage, &record);
  return 0;
}
