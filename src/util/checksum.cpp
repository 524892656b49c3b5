// No byte is put into its place in a big-endian word. Memory is read in the machine's own words, and the
// bytes of each place are added up side by side in lanes of 16 bits; only their sums are shifted to the
// places.
#include "util/checksum.h"

#include <algorithm>
#include <bit>

namespace {

// What sums are kept in: 4 bytes on the device.
using word = unsigned long;
// What memory is read in: the device's processor loads two of its words at once.
using load = uint64_t;
constexpr size_t words_per_load = sizeof(load) / sizeof(word);

constexpr word even_lanes = static_cast<word>(0x00FF00FF00FF00FF);
// As many words as the lanes hold without a carry into their neighbours: 256 x 255 is below 65536.
constexpr size_t block_loads = 256 / words_per_load;

// The sums of the bytes at the four places of a word, first byte first.
struct place_sums {
  uint64_t at[4] = {};
};

// The weight of the byte at `place` (0..3) of a big-endian word, as a shift.
constexpr unsigned shift_of(size_t place) {
  return static_cast<unsigned>(24 - 8 * (place & 3));
}

// Adds the lanes, which belong to places `first`, `first` + 2, and so on in the order of memory.
void add_lanes(place_sums& sums, word lanes, size_t first) {
  for (size_t i = 0; i < sizeof(word) / 2; ++i) {
    const size_t in_memory = std::endian::native == std::endian::little ? i : sizeof(word) / 2 - 1 - i;
    sums.at[(first + 2 * in_memory) & 3] += lanes >> (16 * i) & 0xFFFF;
  }
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
  void add_to(place_sums& sums) const {
    const word odd = shifted - (even >> 16 << 8);
    constexpr bool little = std::endian::native == std::endian::little;
    add_lanes(sums, even, little ? 0 : 1);
    add_lanes(sums, odd, little ? 1 : 0);
  }
};

// Reads the bytes of objects of any type.
using aliasing_load [[gnu::may_alias]] = load;

// The bytes at an address that is a multiple of their number.
load load_at(const uint8_t* bytes) {
  const void* aligned = __builtin_assume_aligned(bytes, sizeof(load));
  if constexpr (words_per_load == 2) {
    // A volatile access is made as it is written: both words by one instruction.
    return *static_cast<const volatile aliasing_load*>(aligned);
  } else {
    return *static_cast<const aliasing_load*>(aligned);
  }
}

// At most `block_loads` loads.
void add_block(place_sums& sums, const uint8_t* next, size_t loads) {
  constexpr size_t unrolled = 16;
  lane_sums lanes;
  for (; loads >= unrolled; loads -= unrolled, next += unrolled * sizeof(load)) {
#pragma GCC unroll 16
    for (size_t i = 0; i < unrolled; ++i) {
      lanes.add(load_at(next + i * sizeof(load)));
    }
  }
  for (; loads > 0; --loads, next += sizeof(load)) {
    lanes.add(load_at(next));
  }
  lanes.add_to(sums);
}

void add_bytes(place_sums& sums, const uint8_t* bytes, size_t count, size_t first_place) {
  for (size_t i = 0; i < count; ++i) {
    sums.at[(first_place + i) & 3] += bytes[i];
  }
}

}  // namespace

void checksum_sum::add(const void* data, size_t size) {
  const auto* next = static_cast<const uint8_t*>(data);
  // Places are counted by address until all is summed.
  const size_t misaligned = reinterpret_cast<uintptr_t>(next) % sizeof(load);
  const size_t head = std::min(misaligned == 0 ? 0 : sizeof(load) - misaligned, size);
  place_sums sums;
  add_bytes(sums, next, head, misaligned);
  next += head;
  size_t loads = (size - head) / sizeof(load);
  while (loads > 0) {
    const size_t count = std::min(loads, block_loads);
    add_block(sums, next, count);
    next += count * sizeof(load);
    loads -= count;
  }
  add_bytes(sums, next, (size - head) % sizeof(load), 0);
  const size_t turn = phase_ + 4 - misaligned % 4;
  for (size_t place = 0; place < 4; ++place) {
    sum_ += sums.at[place] << shift_of(place + turn);
  }
  phase_ = static_cast<unsigned>((phase_ + size) % 4);
}

uint64_t checksum_sum::finish() const {
  const uint64_t folded = (sum_ >> 32) + (sum_ & 0xFFFFFFFF);
  return ~((folded >> 32) + folded);
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
