// Times the image checksum against the obvious form of it and against reading the memory once:
// checksum_bench SIZE TURNS   three ratios on this machine; SIZE bytes, a multiple of 64, the best of so many
// turns checksum_bench SIZE         just sums SIZE bytes once, at most 1 MiB, for counting instructions
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "util/checksum.h"
#include "util/stream.h"

namespace {

// A byte at a time, as one would write it first.
uint32_t plain_checksum(const uint8_t* bytes, size_t length) {
  uint64_t sum = 0;
  for (size_t i = 0; i < length; ++i) {
    sum += uint64_t{bytes[i]} << (24 - 8 * (i & 3));
  }
  sum = (sum >> 32) + (sum & 0xFFFFFFFF);
  sum = (sum >> 32) + sum;
  return ~static_cast<uint32_t>(sum);
}

uint32_t pieces_checksum(const uint8_t* bytes, size_t length) {
  image_checksum_chunks_start();
  for (size_t done = 0; done < length; done += stream_piece_size) {
    image_checksum_chunks_calc(bytes + done, std::min(stream_piece_size, length - done));
  }
  return image_checksum_chunks_end();
}

uint32_t absent_byte(const uint8_t* bytes, size_t length) {
  return memchr(bytes, 0x5A, length) != nullptr ? 1 : 0;
}

double seconds_now() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

using form = uint32_t (*)(const uint8_t*, size_t);

uint32_t whole_checksum(const uint8_t* bytes, size_t length) {
  return image_checksum(bytes, length);
}

struct measurement {
  form work;
  double best = 1e9;  // seconds
  uint32_t result = 0;
};

// Takes turns, so that what else the machine does falls on all alike, and keeps the best time of each.
void measure(measurement* measurements, size_t count, const uint8_t* bytes, size_t length, int turns) {
  for (int i = 0; i < turns; ++i) {
    for (measurement* each = measurements; each != measurements + count; ++each) {
      const double start = seconds_now();
      each->result = each->work(bytes, length);
      each->best = std::min(each->best, seconds_now() - start);
    }
  }
}

void fill(uint8_t* bytes, size_t length) {
  uint32_t state = 1;
  for (size_t i = 0; i < length; ++i) {
    state = state * 1664525 + 1013904223;
    const auto byte = static_cast<uint8_t>(state >> 24);
    bytes[i] = byte == 0x5A ? 0 : byte;
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 && argc != 3) {
    fprintf(stderr, "usage: checksum_bench SIZE [TURNS]\n");
    return 2;
  }
  const size_t length = strtoul(argv[1], nullptr, 10);
  if (argc == 2) {
    static uint8_t zeros[size_t{1} << 20];
    return image_checksum(zeros, std::min(length, sizeof zeros)) == 0 ? 1 : 0;
  }
  auto* bytes = static_cast<uint8_t*>(aligned_alloc(64, length));
  if (bytes == nullptr) {
    return 1;
  }
  fill(bytes, length);
  measurement all[] = {{plain_checksum}, {whole_checksum}, {pieces_checksum}, {absent_byte}};
  measure(all, 4, bytes, length, atoi(argv[2]));
  if (all[0].result != all[1].result || all[0].result != all[2].result || all[3].result != 0) {
    fprintf(stderr, "checksum_bench: the forms disagree\n");
    return 1;
  }
  // Byte by byte against one-shot, pieces of 4 KiB against it, and it against reading the memory once
  // (memchr).
  printf("%.3f %.3f %.3f\n", all[0].best / all[1].best, all[2].best / all[1].best, all[1].best / all[3].best);
  return 0;
}
