// The numbers of UBI in sysfs: none that is taken for a number of erase blocks may be one that no flash has.
#include <cstdlib>

#include "fuzz_opened.h"
#include "ubi/volume.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  run_all_messages_silently();
  const opened_input file(data, size);
  const std::string line = file.text().substr(0, std::min<size_t>(127, file.text().find('\n'))).c_str();
  const long long number = file.text().empty() ? -1 : strtoll(line.c_str(), nullptr, 10);
  // Four of them are added up.
  const int lebs = number >= 0 && number <= INT32_MAX / 4 ? static_cast<int>(number) : -1;
  if (ubi_get_volume_size_in_lebs("/dev/ubi0_1") != lebs || ubi_get_free_num_lebs() != lebs ||
      ubi_get_volume_size_in_bytes("/dev/ubi0_1") != number) {
    abort();
  }
  return 0;
}
