// Streams LENGTH bytes from standard input into FILE the way the shell does from a port or a pipe into a raw
// partition:
//
//   stream_bench FILE LENGTH
#include <cstdio>
#include <cstdlib>

#include "flash/write.h"
#include "mtd/partition_table.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: stream_bench FILE LENGTH\n");
    return 2;
  }
  uint64_t checksum = 0;
  const uint32_t length = static_cast<uint32_t>(strtoul(argv[2], nullptr, 10));
  return flash_write_buffer_fd(argv[1], 0, mtd_type_serial, 0, nullptr, length, 0, &checksum) != 0 ? 0 : 1;
}
