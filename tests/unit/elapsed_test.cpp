// Time differences with and without a borrowed second.
#include "util/elapsed.h"

#include <gtest/gtest.h>

namespace {

TEST(timespec_elapsed_ms_test, counts_whole_milliseconds) {
  struct {
    timespec start, end;
    long milliseconds;
  } constexpr cases[] = {
      {{5, 0}, {5, 0}, 0},
      {{5, 500}, {5, 500}, 0},
      {{5, 0}, {5, 999999}, 0},
      {{5, 0}, {5, 1000000}, 1},
      {{5, 1}, {5, 1000000}, 0},
      {{5, 0}, {5, 999999999}, 999},
      {{5, 0}, {6, 0}, 1000},
      {{5, 250000000}, {8, 750000000}, 3500},
      // The end's nanoseconds lie below the start's: a second is borrowed.
      {{5, 1}, {6, 0}, 999},
      {{5, 999999999}, {6, 0}, 0},
      {{5, 999000000}, {6, 0}, 1},
      {{5, 750000000}, {8, 250000000}, 2500},
      {{5, 1}, {7, 0}, 1999},
      {{0, 0}, {2000000, 0}, 2000000000},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(timespec_elapsed_ms(c.start, c.end), c.milliseconds)
        << c.start.tv_sec << "." << c.start.tv_nsec << " to " << c.end.tv_sec << "." << c.end.tv_nsec;
  }
}

}  // namespace
