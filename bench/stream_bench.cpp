// Installs an image from standard input the way the shell does from a port or a pipe:
// stream_bench raw FILE LENGTH    LENGTH bytes into FILE as into a raw partition
// stream_bench image              a whole image; for its peak memory, which is printed
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "flash/write.h"
#include "image/stream_installation.h"
#include "mtd/partition_table.h"

namespace {

long peak_kib() {
  rusage usage = {};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

int write_raw(const char* path, const char* length) {
  uint64_t checksum = 0;
  return flash_write_buffer_fd(path, 0, mtd_type_serial, 0, nullptr,
                               static_cast<uint32_t>(strtoul(length, nullptr, 10)), 0, &checksum) != 0
             ? 0
             : 1;
}

// The partitions of the image's parts are files that the caller has made; only `row` is written.
int write_image(const char* row_name, const char* path) {
  mtd_partition* row = mtd_get_by_name(row_name);
  if (row == nullptr) {
    return 1;
  }
  row->dev_name = const_cast<char*>(path);
  row->protect = 0;
  const long idle = peak_kib();
  image_write_fd(nullptr, 0, mtd_bank_1, 0x7D3E, true);
  fprintf(stderr, "%ld\n", peak_kib() - idle);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 4 && strcmp(argv[1], "raw") == 0) {
    return write_raw(argv[2], argv[3]);
  }
  if (argc == 4 && strcmp(argv[1], "image") == 0) {
    return write_image(argv[2], argv[3]);
  }
  fprintf(stderr, "usage: stream_bench raw FILE LENGTH | stream_bench image PARTITION FILE\n");
  return 2;
}
