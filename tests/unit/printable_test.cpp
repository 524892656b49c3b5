// What reaches the console of a text from outside.
#include "util/printable.h"

#include <gtest/gtest.h>

namespace {

TEST(printable_test, bytes_that_are_not_printable_are_question_marks) {
  for (int byte = 1; byte < 256; byte++) {
    const char text[] = {'a', static_cast<char>(byte), 'b', '\0'};
    const std::string kept = {'a', byte >= 0x20 && byte <= 0x7E ? static_cast<char>(byte) : '?', 'b'};
    EXPECT_EQ(printable<8>(text).text(), kept) << byte;
  }
}

TEST(printable_test, a_text_ends_at_a_zero_byte_or_when_the_field_is_full) {
  const char field[4] = {'A', 'B', 'C', 'D'};
  EXPECT_STREQ(printable<4>(field).text(), "ABCD");
  EXPECT_STREQ(printable<3>(field).text(), "ABC");
  EXPECT_STREQ(printable<4>("A\0B").text(), "A");
  EXPECT_STREQ(printable<4>("").text(), "");
}

}  // namespace
