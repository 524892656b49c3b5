// What the tool that dumps a JFFS2 partition prints; first bytes the size of the partition.
#include <cstdlib>
#include <cstring>

#include "analysis/jffs2_analysis.h"
#include "fuzz_input.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  uint32_t partition_size = 0;
  if (size < sizeof partition_size) {
    return 0;
  }
  memcpy(&partition_size, data, sizeof partition_size);
  data += sizeof partition_size;
  size -= sizeof partition_size;
  // As much as is read of a line. Bytes 1 and 2 stand for what comes before a number.
  char line[256] = {};
  size_t length = 0;
  for (size_t i = 0; i < size && length < sizeof line - 16; ++i) {
    const char* key = data[i] == 1 ? "Empty space: " : data[i] == 2 ? "dirty space: " : nullptr;
    if (key != nullptr) {
      memcpy(line + length, key, strlen(key));
      length += strlen(key);
    } else {
      line[length++] = static_cast<char>(data[i]);
    }
  }
  uint64_t used = 0;
  if (jffs2_space_in_use(line, partition_size, &used) && used > partition_size) {
    abort();
  }
  return 0;
}
