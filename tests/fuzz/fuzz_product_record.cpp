// The product record of a flash partition, with a checksum made good so that the items are reached.
#include <cstdlib>
#include <cstring>

#include "fuzz_input.h"
#include "mtd/partition_table.h"
#include "prodcfg/record.h"

namespace {

constexpr size_t partition_size = 1024;

void make_checksum_good(uint8_t* record, size_t total) {
  unsigned sum = 0;
  for (size_t i = 2; i < total; ++i) {
    sum += static_cast<unsigned>(record[i]) << (i % 2 == 0 ? 0 : 8);
  }
  const unsigned checksum = 0 - sum;
  record[0] = static_cast<uint8_t>(checksum);
  record[1] = static_cast<uint8_t>(checksum >> 8);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  run_all_messages_silently();
  uint8_t record[partition_size] = {};
  memcpy(record, data, size < sizeof record ? size : sizeof record);
  const size_t total = record[2] | static_cast<size_t>(record[3]) << 8;
  if (total >= 4 && total <= sizeof record) {
    make_checksum_good(record, total);
  }
  const input_file partition(record, sizeof record);
  mtd_partition* row = mtd_get_by_image_and_bank(nullptr, mtd_image_product_config, mtd_bank_any);
  row->dev_name = partition.path();
  prodcfg_init();
  product_text text;
  prodcfg_get_product_id(text);
  prodcfg_get_hwcfg(text);
  return 0;
}
