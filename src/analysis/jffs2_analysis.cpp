// Tools run: /usr/sbin/jffs2dump, /bin/grep.
#include "analysis/jffs2_analysis.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "flash/read.h"
#include "util/command_pipe.h"
#include "util/exec.h"
#include "util/log.h"
#include "util/unique_fd.h"

namespace {

// The number behind `key`, 0 when absent.
unsigned number_behind(const char* text, const char* key) {
  const char* found = strstr(text, key);
  unsigned number = 0;
  if (found != nullptr) {
    // NOLINTNEXTLINE(cert-err34-c): what the tool prints is compared with the partition's size
    sscanf(found + strlen(key), "%u", &number);
  }
  return number;
}

}  // namespace

bool jffs2_space_in_use(const char* line, uint32_t size, uint64_t* used) {
  const uint64_t empty = number_behind(line, "Empty space: ");
  const uint64_t dirty = number_behind(line, "dirty space: ");
  *used = size - empty;
  return empty + dirty < size;
}

bool flash_analyze_jffs2(const char* dev_name, flash_analysis* record) {
  log_printf(level_trace, "%s:\n", __func__);
  uint32_t size = 0;
  command_line line;
  if (!flash_query_size(unique_fd(open(dev_name, O_RDONLY | O_CLOEXEC)), &size) || size == 0 ||
      !compose_command(line, "/usr/sbin/jffs2dump -v -c %s | /bin/grep \"Empty space:\"", dev_name)) {
    return false;
  }
  log_printf(level_verbose, "%s: popen(%s)\n", __func__, line.text());
  const command_pipe dump(line.text(), "r");
  if (!dump) {
    log_printf(level_error, "%s: popen(%s) error(%s)\n", __func__, line.text(), strerror(errno));
    return false;
  }
  record->crc = 0;
  analysis_set_identity(record, "-", "-");
  char output[256];
  if (fgets(output, sizeof output, dump.stream()) == nullptr) {
    return false;
  }
  return jffs2_space_in_use(output, size, &record->size);
}
