// Path: /proc/mtd, read again at every question, for the list changes when partitions are split and merged.
#include "mtd/proc_mtd.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "mtd/partition_table.h"
#include "util/log.h"

namespace {

constexpr size_t line_size = 128;

// The line of the first partition whose line contains `name`. Result: false when there is none.
bool find_line(const char* name, char (&line)[line_size]) {
  FILE* list = fopen("/proc/mtd", "re");
  if (list == nullptr) {
    return false;
  }
  bool found = false;
  while (!found && fgets(line, sizeof line, list) != nullptr) {
    // The heading does not begin like a partition.
    found = strstr(line, name) != nullptr && strncmp(line, "mtd", 3) == 0;
  }
  fclose(list);
  return found;
}

// The text behind the n-th blank, or null.
const char* after_blank(const char* line, int n) {
  for (; line != nullptr && n > 0; --n) {
    line = strchr(line, ' ');
    line = line != nullptr ? line + 1 : nullptr;
  }
  return line;
}

}  // namespace

int mtd_name_to_index(const char* name) {
  char line[line_size];
  return find_line(name, line) ? static_cast<int>(strtol(line + 3, nullptr, 10)) : -1;
}

uint64_t mtd_name_to_size(const char* name) {
  log_printf(level_trace, "%s: name=%s\n", __func__, name);
  char line[line_size];
  if (!find_line(name, line)) {
    return 0;
  }
  const char* colon = strchr(line, ':');
  if (colon == nullptr || colon[1] == '\0') {
    return 0;
  }
  return strtoull(colon + 2, nullptr, 16);
}

uint32_t mtd_name_to_erasesize(const char* name) {
  log_printf(level_trace, "%s: name=%s\n", __func__, name);
  char line[line_size];
  if (!find_line(name, line)) {
    return 0;
  }
  const char* erase_size = after_blank(line, 2);
  return erase_size == nullptr ? 0 : static_cast<uint32_t>(strtoull(erase_size, nullptr, 16));
}

void mtd_init_dev_names() {
  // Two texts a row, in turn. Memory that runs out half way would leave rows with the nodes of other
  // partitions, and the next to be erased would be one of those.
  constexpr size_t node_size = 24;
  static char nodes[mtd_config_table_rows][2][node_size];
  for (mtd_partition* row = nullptr; (row = mtd_get_by_type(row, mtd_type_any)) != nullptr;) {
    const int index = mtd_name_to_index(row->part_name);
    if (index < 0) {
      continue;
    }
    auto& texts = nodes[row - mtd_config_table];
    char* node = texts[row->dev_name == texts[0] ? 1 : 0];
    snprintf(node, node_size, "/dev/mtd%d", index);
    row->dev_name = node;
    log_printf(level_verbose, "%s: %s=%s\n", __func__, row->part_name, row->dev_name);
  }
}
