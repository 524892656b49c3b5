// The image checksum: by hand, against its definition, over every cut and alignment, and at lengths where
// counts in 32 bits overflow.
#include "util/checksum.h"

#include <gtest/gtest.h>

#include "loader_test.h"
#include "util/checksum.h"

namespace {

uint32_t checksum(const std::string& bytes) {
  return image_checksum(bytes.data(), bytes.size());
}

TEST(checksum_test, values_computed_by_hand) {
  EXPECT_EQ(checksum(""), 0xFFFFFFFF);
  EXPECT_EQ(checksum("\x01"), 0xFEFFFFFF);
  EXPECT_EQ(checksum("\x01\x02"), 0xFEFDFFFF);
  EXPECT_EQ(checksum("\x01\x02\x03"), 0xFEFDFCFF);
  EXPECT_EQ(checksum("\x01\x02\x03\x04"), 0xFEFDFCFB);
  EXPECT_EQ(checksum("\x01\x02\x03\x04\x05"), 0xF9FDFCFB);
  EXPECT_EQ(checksum(std::string(4, '\0')), 0xFFFFFFFF);
  EXPECT_EQ(checksum(std::string(3, '\0')), 0xFFFFFFFF);
}

TEST(checksum_test, carries_come_round_to_the_low_end) {
  const std::string ones(4, '\xFF');
  EXPECT_EQ(checksum(ones), 0x00000000U);
  EXPECT_EQ(checksum(ones + big_endian(1)), 0xFFFFFFFE);         // 1 0000 0000 -> 0000 0001
  EXPECT_EQ(checksum(ones + ones), 0x00000000U);                 // 1 FFFF FFFE -> FFFF FFFF
  EXPECT_EQ(checksum(ones + ones + big_endian(1)), 0xFFFFFFFE);  // the first fold overflows again
  EXPECT_EQ(checksum(big_endian(0x80000000) + big_endian(0x80000000)), 0xFFFFFFFE);
  EXPECT_EQ(checksum(ones + "\x80"), 0x7FFFFFFFU);
}

TEST(checksum_test, agrees_with_the_definition_for_every_length_and_alignment) {
  const std::string bytes = noise(300);
  for (size_t alignment = 0; alignment < 8; alignment++) {
    alignas(8) char room[320];
    memcpy(room + alignment, bytes.data(), bytes.size());
    for (size_t length = 0; length <= bytes.size(); length++) {
      ASSERT_EQ(image_checksum(room + alignment, length), plain_checksum(bytes.substr(0, length)))
          << "alignment " << alignment << " length " << length;
    }
  }
}

TEST(checksum_test, agrees_with_the_definition_when_all_bytes_are_ones) {
  for (size_t length = 0; length < 300; length++) {
    const std::string bytes(length, '\xFF');
    ASSERT_EQ(checksum(bytes), plain_checksum(bytes)) << length;
  }
}

TEST(checksum_test, agrees_with_the_definition_over_a_megabyte) {
  const std::string bytes = noise((1 << 20) + 3);
  EXPECT_EQ(checksum(bytes), plain_checksum(bytes));
}

// ---------------------------------------------------------------------------------------------- in pieces

TEST(checksum_chunks_test, every_cut_into_three_gives_the_value_of_the_whole) {
  const std::string bytes = noise(41, 2);
  const uint32_t whole = plain_checksum(bytes);
  for (size_t first = 0; first <= bytes.size(); first++) {
    for (size_t second = first; second <= bytes.size(); second++) {
      image_checksum_chunks_start();
      image_checksum_chunks_calc(bytes.data(), first);
      image_checksum_chunks_calc(bytes.data() + first, second - first);
      image_checksum_chunks_calc(bytes.data() + second, bytes.size() - second);
      ASSERT_EQ(image_checksum_chunks_end(), whole) << first << " " << second;
    }
  }
}

// A stream is read into one buffer, so its place in a word and its place in memory have nothing in common.
TEST(checksum_chunks_test, pieces_may_lie_anywhere_in_memory) {
  const std::string bytes = noise(64, 3);
  alignas(8) char room[80];
  for (size_t cut = 0; cut <= 16; cut++) {
    for (size_t alignment = 0; alignment < 8; alignment++) {
      checksum_sum sum;
      sum.add(bytes.data(), cut);
      memcpy(room + alignment, bytes.data() + cut, bytes.size() - cut);
      sum.add(room + alignment, bytes.size() - cut);
      ASSERT_EQ(static_cast<uint32_t>(sum.finish()), plain_checksum(bytes)) << cut << " " << alignment;
    }
  }
}

TEST(checksum_chunks_test, single_bytes_give_the_value_of_the_whole) {
  const std::string bytes = noise(1027, 4);
  image_checksum_chunks_start();
  for (const char& byte : bytes)
    image_checksum_chunks_calc(&byte, 1);
  EXPECT_EQ(image_checksum_chunks_end(), plain_checksum(bytes));
}

TEST(checksum_chunks_test, nothing_at_all_is_the_empty_checksum) {
  image_checksum_chunks_start();
  EXPECT_EQ(image_checksum_chunks_end(), 0xFFFFFFFF);
}

TEST(checksum_chunks_test, a_second_start_begins_anew_even_within_a_word) {
  image_checksum_chunks_start();
  image_checksum_chunks_calc("abc", 3);
  image_checksum_chunks_start();
  image_checksum_chunks_calc("\x01", 1);
  EXPECT_EQ(image_checksum_chunks_end(), 0xFEFFFFFF);
}

TEST(checksum_chunks_test, random_pieces_of_a_megabyte_give_the_value_of_the_whole) {
  const std::string bytes = noise(1 << 20, 5);
  std::mt19937 random(6);
  image_checksum_chunks_start();
  for (size_t done = 0; done < bytes.size();) {
    const size_t size = std::min<size_t>(random() % 5000, bytes.size() - done);
    image_checksum_chunks_calc(bytes.data() + done, size);
    done += size;
  }
  EXPECT_EQ(image_checksum_chunks_end(), plain_checksum(bytes));
}

TEST(checksum_chunks_test, four_gigabytes_of_ones_overflow_nothing) {
  const std::string ones(1 << 20, '\xFF');
  checksum_sum sum;
  for (int i = 0; i < 4096; i++)
    sum.add(ones.data(), ones.size());
  EXPECT_EQ(static_cast<uint32_t>(sum.finish()), 0U);
  sum.add("\x01", 1);
  EXPECT_EQ(static_cast<uint32_t>(sum.finish()), 0xFEFFFFFF) << "ones are another zero";
}

// The sum as it is defined, in 64 bits: of words, then folded twice and complemented.
uint64_t sum_of_words(const std::string& bytes) {
  uint64_t sum = 0;
  for (size_t i = 0; i < bytes.size(); i++)
    sum += uint64_t{static_cast<uint8_t>(bytes[i])} << (24 - 8 * (i % 4));
  return sum;
}

uint64_t defined_value(const std::string& bytes) {
  const uint64_t sum = sum_of_words(bytes);
  const uint64_t folded = (sum & 0xFFFFFFFF) + (sum >> 32);
  return ~(folded + (folded >> 32));
}

TEST(checksum_sum_test, upper_half_of_the_result_is_the_complement_of_zero) {
  checksum_sum sum;
  EXPECT_EQ(sum.finish(), 0xFFFFFFFFFFFFFFFF);
  sum.add("\x01\x02\x03\x04", 4);
  EXPECT_EQ(sum.finish(), 0xFFFFFFFFFEFDFCFB);
}

TEST(checksum_sum_test, a_carry_of_the_first_fold_stays_in_bit_32) {
  const std::string ones(8, '\xFF');
  for (const char* last : {"\x00\x00\x00\x01", "\x00\x00\x00\x02", "\xFF\xFF\xFF\xFF"}) {
    checksum_sum sum;
    sum.add(ones.data(), ones.size());
    sum.add(last, 4);
    EXPECT_EQ(sum.finish(), defined_value(ones + std::string(last, 4)));
  }
  checksum_sum sum;
  sum.add((ones + big_endian(1)).data(), 12);  // 1 FFFF FFFF -> 1 0000 0000 -> 1 0000 0001
  EXPECT_EQ(sum.finish(), 0xFFFFFFFEFFFFFFFE);
}

// Whether the first fold carries depends on the whole sum, so no piece may be folded for itself.
TEST(checksum_sum_test, the_carry_does_not_depend_on_cuts_and_alignment) {
  std::string bytes = noise(100, 7);
  bytes += big_endian(0xFFFFFFFF - static_cast<uint32_t>(sum_of_words(bytes)));
  ASSERT_EQ(defined_value(bytes) >> 32, 0xFFFFFFFEU);
  for (size_t cut = 0; cut <= bytes.size(); cut++) {
    for (size_t alignment = 0; alignment < 8; alignment++) {
      alignas(8) char room[120];
      memcpy(room + alignment, bytes.data() + cut, bytes.size() - cut);
      checksum_sum sum;
      sum.add(bytes.data(), cut);
      sum.add(room + alignment, bytes.size() - cut);
      ASSERT_EQ(sum.finish(), defined_value(bytes)) << cut << " " << alignment;
    }
  }
}

}  // namespace
