// The bytes are never assembled into big-endian words. Memory is read in the machine's own words, and the
// bytes of each place are added up side by side in lanes of 16 bits; only the sums of the four places are put
// where they belong. A piece that starts inside a word of the stream only has its own sum turned by that many
// bytes: a ones'-complement sum may be rotated like the words it was made of (after RFC 1071, section 2).
#include "util/checksum.h"

#include <algorithm>
#include <bit>

namespace {

// The machine's word: 4 bytes on the device.
using word = unsigned long;

constexpr word even_lanes = static_cast<word>(0x00FF00FF00FF00FF);
// As many words as the lanes hold without a carry into their neighbours: 256 x 255 is below 65536.
constexpr size_t block_words = 256;

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

// At most `block_words` words.
uint64_t sum_block(const word* next, size_t words) {
  word even = 0;     // lanes of every second byte
  word shifted = 0;  // lanes of the bytes in between, overlaid by the even ones
  for (; words >= 8; words -= 8, next += 8) {
    for (size_t i = 0; i < 8; ++i) {
      even += next[i] & even_lanes;
      shifted += next[i] >> 8;
    }
  }
  for (; words > 0; --words, ++next) {
    even += *next & even_lanes;
    shifted += *next >> 8;
  }
  const word odd = shifted - (even >> 16 << 8);
  constexpr bool little = std::endian::native == std::endian::little;
  return sum_of_lanes(even, little ? 0 : 1) + sum_of_lanes(odd, little ? 1 : 0);
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
  const size_t misaligned = reinterpret_cast<uintptr_t>(next) % sizeof(word);
  const size_t head = std::min(misaligned == 0 ? 0 : sizeof(word) - misaligned, size);
  uint64_t sum = sum_bytes(next, head, misaligned);
  next += head;
  size_t words = (size - head) / sizeof(word);
  while (words > 0) {
    const size_t count = std::min(words, block_words);
    sum += sum_block(reinterpret_cast<const word*>(__builtin_assume_aligned(next, sizeof(word))), count);
    next += count * sizeof(word);
    words -= count;
  }
  sum += sum_bytes(next, (size - head) % sizeof(word), 0);
  const size_t turn = (phase_ + 4 - misaligned % 4) % 4;
  sum_ += std::rotr(fold(sum), static_cast<int>(8 * turn));
  phase_ = static_cast<unsigned>((phase_ + size) % 4);
}

uint64_t checksum_sum::finish() const {
  return ~uint64_t{fold(sum_)};
}
