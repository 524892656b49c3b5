// The bytes are never assembled into big-endian words. Memory is read in the machine's own words, and the
// bytes of each place are added up side by side in lanes of 16 bits; only the sums of the four places are put
// where they belong. A piece that starts inside a word of the stream only has its own sum turned by that many
// bytes: a ones'-complement sum may be rotated like the words it was made of (after RFC 1071, section 2).
#include "util/checksum.h"

#include <algorithm>
#include <bit>
#include <type_traits>

namespace {

// What sums are kept in: 4 bytes on the device.
using word = unsigned long;
// What memory is read in: the device's processor loads two of its words at once.
using load = uint64_t;
constexpr size_t words_per_load = sizeof(load) / sizeof(word);
// Volatile there, for a volatile access is made as it is written: as one instruction.
using load_pointer = std::conditional_t<words_per_load == 2, const volatile load*, const load*>;

constexpr word even_lanes = static_cast<word>(0x00FF00FF00FF00FF);
// As many words as the lanes hold without a carry into their neighbours: 256 x 255 is below 65536.
constexpr size_t block_loads = 256 / words_per_load;

uint32_t fold(uint64_t sum) {
  sum = (sum >> 32) + (sum & 0xFFFFFFFF);
  return static_cast<uint32_t>((sum >> 32) + sum);
}

// The weight of the byte at `place` (0..3) of a big-endian word, as a shift.
constexpr unsigned shift_of(size_t place) {
  return static_cast<unsigned>(24 - 8 * (place & 3));
}

// The sum of the lanes, each of which belongs to places `first`, `first` + 2, and so on in the order of
// memory.
uint64_t sum_of_lanes(word lanes, size_t first) {
  uint64_t sum = 0;
  for (size_t i = 0; i < sizeof(word) / 2; ++i) {
    const size_t in_memory = std::endian::native == std::endian::little ? i : sizeof(word) / 2 - 1 - i;
    sum += static_cast<uint64_t>(lanes >> (16 * i) & 0xFFFF) << shift_of(first + 2 * in_memory);
  }
  return sum;
}

// The bytes of each place side by side.
struct lane_sums {
  word even = 0;     // lanes of every second byte
  word shifted = 0;  // lanes of the bytes in between, overlaid by the even ones

  void add_word(word value) {
    even += value & even_lanes;
    shifted += value >> 8;
  }
  void add(load value) {
    add_word(static_cast<word>(value));
    if constexpr (words_per_load == 2) {
      add_word(static_cast<word>(value >> 32));
    }
  }
  uint64_t sum() const {
    const word odd = shifted - (even >> 16 << 8);
    constexpr bool little = std::endian::native == std::endian::little;
    return sum_of_lanes(even, little ? 0 : 1) + sum_of_lanes(odd, little ? 1 : 0);
  }
};

// At most `block_loads` loads.
uint64_t sum_block(load_pointer next, size_t loads) {
  constexpr size_t unrolled = 16;
  lane_sums lanes;
  for (; loads >= unrolled; loads -= unrolled, next += unrolled) {
#pragma GCC unroll 16
    for (size_t i = 0; i < unrolled; ++i) {
      lanes.add(next[i]);
    }
  }
  for (; loads > 0; --loads, ++next) {
    lanes.add(*next);
  }
  return lanes.sum();
}

uint64_t sum_bytes(const uint8_t* bytes, size_t count, size_t first_place) {
  uint64_t sum = 0;
  for (size_t i = 0; i < count; ++i) {
    sum += uint64_t{bytes[i]} << shift_of(first_place + i);
  }
  return sum;
}

}  // namespace

void checksum_sum::add(const void* data, size_t size) {
  const auto* next = static_cast<const uint8_t*>(data);
  // Places are counted by address until all is summed.
  const size_t misaligned = reinterpret_cast<uintptr_t>(next) % sizeof(load);
  const size_t head = std::min(misaligned == 0 ? 0 : sizeof(load) - misaligned, size);
  uint64_t sum = sum_bytes(next, head, misaligned);
  next += head;
  size_t loads = (size - head) / sizeof(load);
  while (loads > 0) {
    const size_t count = std::min(loads, block_loads);
    sum += sum_block(reinterpret_cast<load_pointer>(__builtin_assume_aligned(next, sizeof(load))), count);
    next += count * sizeof(load);
    loads -= count;
  }
  sum += sum_bytes(next, (size - head) % sizeof(load), 0);
  const size_t turn = (phase_ + 4 - misaligned % 4) % 4;
  sum_ += std::rotr(fold(sum), static_cast<int>(8 * turn));
  phase_ = static_cast<unsigned>((phase_ + size) % 4);
}

uint64_t checksum_sum::finish() const {
  return ~uint64_t{fold(sum_)};
}

namespace {

checksum_sum running;

}  // namespace

uint32_t image_checksum(const void* buffer, size_t length) {
  checksum_sum sum;
  sum.add(buffer, length);
  return static_cast<uint32_t>(sum.finish());
}

void image_checksum_chunks_start() {
  running = checksum_sum();
}

void image_checksum_chunks_calc(const void* buffer, size_t length) {
  running.add(buffer, length);
}

uint32_t image_checksum_chunks_end() {
  return static_cast<uint32_t>(running.finish());
}
