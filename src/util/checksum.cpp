// The sum is taken over words as memory holds them: a ones'-complement sum is independent of byte order up
// to one final swap, and a piece that starts inside a word only turns its own sum by that many bytes
// (RFC 1071, section 2). So no word is ever assembled from bytes, however the stream was cut.
#include "util/checksum.h"

#include <bit>
#include <cstring>

namespace {

uint32_t fold(uint64_t sum) {
  sum = (sum >> 32) + (sum & 0xFFFFFFFF);
  return static_cast<uint32_t>((sum >> 32) + sum);
}

// A word of which only bytes [begin, begin + count) are given, in the order of memory; the rest are zero.
uint32_t partial_word(const uint8_t* bytes, unsigned begin, size_t count) {
  uint8_t word[4] = {};
  memcpy(word + begin, bytes, count);
  uint32_t value;
  memcpy(&value, word, sizeof value);
  return value;
}

// Turns a word by `bytes` places towards higher addresses.
uint32_t rotate_bytes(uint32_t value, unsigned bytes) {
  const int bits = static_cast<int>(8 * bytes);
  return std::endian::native == std::endian::little ? std::rotl(value, bits) : std::rotr(value, bits);
}

uint64_t sum_aligned_words(const uint8_t* bytes, size_t words) {
  const auto* word = reinterpret_cast<const uint32_t*>(__builtin_assume_aligned(bytes, 4));
  uint64_t sum = 0;
  uint64_t other = 0;
  for (; words >= 8; words -= 8, word += 8) {
    sum += word[0];
    other += word[1];
    sum += word[2];
    other += word[3];
    sum += word[4];
    other += word[5];
    sum += word[6];
    other += word[7];
  }
  for (; words != 0; --words) {
    sum += *word++;
  }
  return sum + other;
}

}  // namespace

void checksum_sum::add(const void* data, size_t size) {
  const auto* bytes = static_cast<const uint8_t*>(data);
  // Up to the first aligned word of memory: its bytes stand at the end of the word that they belong to.
  const auto misaligned = static_cast<unsigned>(reinterpret_cast<uintptr_t>(bytes) & 3);
  uint64_t sum = 0;
  const uint8_t* word = bytes;
  size_t left = size;
  if (misaligned != 0) {
    const size_t head = left < 4 - misaligned ? left : 4 - misaligned;
    sum = partial_word(word, misaligned, head);
    word += head;
    left -= head;
  }
  sum += sum_aligned_words(word, left / 4);
  sum += partial_word(word + (left & ~size_t{3}), 0, left & 3);
  // `sum` counts bytes by their place in memory; the stream has the first of them at place `phase_`.
  sum_ += rotate_bytes(fold(sum), (phase_ + 4 - misaligned) & 3);
  phase_ = static_cast<unsigned>((phase_ + size) & 3);
}

uint64_t checksum_sum::finish() const {
  const uint32_t folded = fold(sum_);
  const uint32_t big_endian = std::endian::native == std::endian::little ? __builtin_bswap32(folded) : folded;
  return ~uint64_t{big_endian};
}
