// The kernel's list of partitions, against a reader as one would write it first.
#include <cstdlib>
#include <optional>

#include "fuzz_opened.h"
#include "mtd/partition_table.h"
#include "mtd/proc_mtd.h"

namespace {

void expect(bool holds) {
  if (!holds) {
    abort();
  }
}

// The list is read in lines of at most 127 bytes, and a line ends at a zero byte.
std::optional<std::string> line_of(const std::string& list, const std::string& name) {
  for (size_t begin = 0; begin < list.size();) {
    const size_t end = std::min(list.find('\n', begin), list.size() - 1) + 1;
    const std::string line = list.substr(begin, std::min<size_t>(end - begin, 127)).c_str();
    begin += std::min<size_t>(end - begin, 127);
    if (line.starts_with("mtd") && line.find(name) != std::string::npos) {
      return line;
    }
  }
  return std::nullopt;
}

uint64_t size_in(const std::string& line) {
  const size_t colon = line.find(':');
  return colon == std::string::npos || colon + 2 > line.size()
             ? 0
             : strtoull(line.c_str() + colon + 2, nullptr, 16);
}

uint32_t erase_size_in(const std::string& line) {
  const size_t first = line.find(' ');
  const size_t second = first == std::string::npos ? first : line.find(' ', first + 1);
  return second == std::string::npos
             ? 0
             : static_cast<uint32_t>(strtoull(line.c_str() + second + 1, nullptr, 16));
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  run_all_messages_silently();
  const opened_input list(data, size);
  for (const mtd_partition& row : mtd_config_table) {
    const auto line = line_of(list.text(), row.part_name);
    expect(mtd_name_to_index(row.part_name) ==
           (line ? static_cast<int>(strtol(line->c_str() + 3, nullptr, 10)) : -1));
    expect(mtd_name_to_size(row.part_name) == (line ? size_in(*line) : 0));
    expect(mtd_name_to_erasesize(row.part_name) == (line ? erase_size_in(*line) : 0));
  }
  const char* before[mtd_config_table_rows];
  for (int i = 0; i < mtd_config_table_rows; ++i) {
    before[i] = mtd_config_table[i].dev_name;
  }
  mtd_init_dev_names();
  for (int i = 0; i < mtd_config_table_rows; ++i) {
    const int index = mtd_name_to_index(mtd_config_table[i].part_name);
    expect(index < 0 ? mtd_config_table[i].dev_name == before[i]
                     : "/dev/mtd" + std::to_string(index) == mtd_config_table[i].dev_name);
  }
  return 0;
}
