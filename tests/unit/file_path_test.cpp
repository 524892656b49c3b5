// Paths built from typed names, and waiting for files.
#include "util/file_path.h"

#include "loader_test.h"

namespace {

// --------------------------------------------------------------------------------------------------- waiting

class file_wait_until_present_test : public loader_test {};

TEST_F(file_wait_until_present_test, a_file_that_is_there_is_not_waited_for) {
  EXPECT_EQ(file_wait_until_present("/proc/mtd", 5), 1);
  EXPECT_EQ(root.sleeps(), std::vector<double>());
}

TEST_F(file_wait_until_present_test, n_seconds_make_n_and_one_attempts_and_sleeps) {
  EXPECT_EQ(file_wait_until_present("/tmp/never", 3), 0);
  EXPECT_EQ(root.sleeps(), std::vector<double>({1, 1, 1, 1}));
  root.forget();
  EXPECT_EQ(file_wait_until_present("/tmp/never", 0), 0);
  EXPECT_EQ(root.sleeps(), std::vector<double>({1}));
}

TEST_F(file_wait_until_present_test, a_file_that_comes_at_the_last_attempt_is_found) {
  root.write_file("/tmp/file", "");
  root.fail_call("stat", {.match = "/tmp/file", .error = ENOENT, .times = 3});
  EXPECT_EQ(file_wait_until_present("/tmp/file", 3), 1);
  EXPECT_EQ(root.sleeps(), std::vector<double>({1, 1, 1}));
}

TEST_F(file_wait_until_present_test, traces_file_and_seconds) {
  log_level = 7;
  EXPECT_EQ(file_wait_until_present("/tmp", 2), 1);
  EXPECT_EQ(root.printed(), "TRACE: file_wait_until_present: file=/tmp seconds=2\n");
}

// ----------------------------------------------------------------------------------------------------- paths

TEST(filename_copy_and_maybe_add_path_test, takes_what_fits_with_its_end) {
  struct {
    size_t size;
    const char* directory;
    const char* name;
    const char* built;  // null: refused
  } constexpr cases[] = {
      {10, "/tmp", "abcd", "/tmp/abcd"},
      {10, "/tmp", "abcde", nullptr},
      {6, "/tmp", "", "/tmp/"},
      {5, "/tmp", "", nullptr},
      {10, "/tmp", "/abcdefgh", "/abcdefgh"},
      {10, "/tmp", "/abcdefghi", nullptr},
      {10, nullptr, "/abc", "/abc"},
      {2, nullptr, "/", "/"},
      {1, nullptr, "/", nullptr},
      {10, nullptr, "abc", nullptr},
      {10, "", "abc", "/abc"},
      {10, "/tmp", nullptr, nullptr},
      {10, nullptr, nullptr, nullptr},
      {64, "/tmp", "../etc/x", "/tmp/../etc/x"},
      {64, "/tmp/", "x", "/tmp//x"},
      {0, "/tmp", "x", nullptr},
      {0, "/tmp", "/x", nullptr},
  };
  for (const auto& c : cases) {
    char out[64] = "untouched";
    const std::string what = std::string(c.directory != nullptr ? c.directory : "null") + " " +
                             (c.name != nullptr ? c.name : "null") + " " + std::to_string(c.size);
    EXPECT_EQ(filename_copy_and_maybe_add_path(out, c.size, c.directory, c.name), c.built != nullptr) << what;
    EXPECT_STREQ(out, c.built != nullptr ? c.built : "untouched") << what;
  }
}

}  // namespace
