// What the tool that dumps a JFFS2 partition prints, against a reader as one would write it first; first
// bytes the size of the partition.
#include <cstdlib>
#include <cstring>
#include <string>

#include "analysis/jffs2_analysis.h"
#include "fuzz_input.h"

namespace {

// The number behind the first of these keys: 32 bits of it, as the tool prints them.
uint32_t plain_number(const std::string& text, const std::string& key) {
  const size_t place = text.find(key);
  return place == std::string::npos
             ? 0
             : static_cast<uint32_t>(strtoul(text.c_str() + place + key.size(), nullptr, 10));
}

}  // namespace

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
  const bool good = jffs2_space_in_use(line, partition_size, &used);
  const std::string text = line;
  const uint64_t empty = plain_number(text, "Empty space: ");
  const bool expected = empty + plain_number(text, "dirty space: ") < partition_size;
  if (good != expected || (good && used != partition_size - empty)) {
    abort();
  }
  return 0;
}
