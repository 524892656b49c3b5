// Times the image checksum against the obvious form of it and against reading the memory once:
// checksum_bench            ratios on this machine
// checksum_bench SIZE       just sums SIZE bytes once, for counting instructions
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "util/checksum.h"
#include "util/stream.h"

namespace {

constexpr size_t buffer_size = size_t{32} << 20;
constexpr int repetitions = 25;

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
void measure(measurement* measurements, size_t count, const uint8_t* bytes) {
  for (int i = 0; i < repetitions; ++i) {
    for (measurement* each = measurements; each != measurements + count; ++each) {
      const double start = seconds_now();
      each->result = each->work(bytes, buffer_size);
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
  if (argc > 1) {
    static uint8_t zeros[size_t{1} << 20];
    return image_checksum(zeros, std::min<size_t>(strtoul(argv[1], nullptr, 10), sizeof zeros)) == 0 ? 1 : 0;
  }
  auto* bytes = static_cast<uint8_t*>(aligned_alloc(64, buffer_size));
  if (bytes == nullptr) {
    return 1;
  }
  fill(bytes, buffer_size);
  measurement all[] = {{plain_checksum}, {whole_checksum}, {pieces_checksum}, {absent_byte}};
  measure(all, 4, bytes);
  if (all[0].result != all[1].result || all[0].result != all[2].result || all[3].result != 0) {
    fprintf(stderr, "checksum_bench: the forms disagree\n");
    return 1;
  }
  printf("one-shot, times as fast as byte by byte: %.1f\n", all[0].best / all[1].best);
  printf("4 KiB pieces, time relative to one-shot: %.3f\n", all[2].best / all[1].best);
  printf("one-shot, time relative to reading the memory once (memchr): %.2f\n", all[1].best / all[3].best);
  return 0;
}
