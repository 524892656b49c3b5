// Composed texts are whole or refused, or cut where that was asked for.
#include "util/text_buffer.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(text_buffer_test, starts_empty) {
  const text_buffer<8> buffer;
  EXPECT_STREQ(buffer.text(), "");
  EXPECT_EQ(buffer.size(), 8U);
}

TEST(text_buffer_test, a_text_that_leaves_room_for_its_end_is_kept) {
  text_buffer<8> buffer;
  EXPECT_TRUE(buffer.format("%s-%d", "abcd", 12));
  EXPECT_STREQ(buffer.text(), "abcd-12");
}

TEST(text_buffer_test, a_text_one_character_longer_is_refused_and_leaves_nothing) {
  text_buffer<8> buffer;
  EXPECT_TRUE(buffer.format("before"));
  EXPECT_FALSE(buffer.format("%s-%d", "abcd", 123));
  EXPECT_STREQ(buffer.text(), "");
}

TEST(text_buffer_test, a_text_may_be_cut_to_what_fits) {
  text_buffer<8> buffer;
  buffer.format_cut("%s-%d", "abcd", 12);
  EXPECT_STREQ(buffer.text(), "abcd-12");
  buffer.format_cut("%s-%d", "abcd", 1234);
  EXPECT_STREQ(buffer.text(), "abcd-12");
  buffer.format_cut("%s", "");
  EXPECT_STREQ(buffer.text(), "");
}

TEST(text_buffer_test, a_text_replaces_the_one_before) {
  text_buffer<8> buffer;
  EXPECT_TRUE(buffer.format("longer"));
  EXPECT_TRUE(buffer.format("%s", ""));
  EXPECT_STREQ(buffer.text(), "");
}

}  // namespace
