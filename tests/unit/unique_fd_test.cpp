// Every descriptor is closed exactly once.
#include "util/unique_fd.h"

#include "loader_test.h"

namespace {

class unique_fd_test : public loader_test {
 protected:
  static bool is_open(int fd) { return fcntl(fd, F_GETFD) != -1; }
  static int fresh() { return open("/tmp", O_RDONLY | O_DIRECTORY | O_CLOEXEC); }
};

TEST_F(unique_fd_test, owns_nothing_at_first) {
  const unique_fd none;
  EXPECT_FALSE(none);
  EXPECT_EQ(none.get(), -1);
  EXPECT_TRUE(unique_fd(0).release() == 0) << "descriptor 0 is one like any other";
}

TEST_F(unique_fd_test, closes_at_its_end) {
  const int fd = fresh();
  {
    const unique_fd owner(fd);
    EXPECT_TRUE(owner);
    EXPECT_TRUE(is_open(fd));
  }
  EXPECT_FALSE(is_open(fd));
}

TEST_F(unique_fd_test, reset_closes_what_it_had) {
  const int first = fresh();
  const int second = fresh();
  unique_fd owner(first);
  owner.reset(second);
  EXPECT_FALSE(is_open(first));
  EXPECT_TRUE(is_open(second));
  owner.reset();
  EXPECT_FALSE(is_open(second));
}

TEST_F(unique_fd_test, descriptor_0_is_closed_like_any_other) {
  const int input = dup(STDIN_FILENO);
  close(STDIN_FILENO);
  {
    const unique_fd owner(fresh());
    EXPECT_EQ(owner.get(), STDIN_FILENO);
  }
  EXPECT_FALSE(is_open(STDIN_FILENO));
  dup2(input, STDIN_FILENO);
  close(input);
}

TEST_F(unique_fd_test, moving_hands_the_descriptor_on) {
  const int fd = fresh();
  unique_fd first(fd);
  unique_fd second(std::move(first));
  EXPECT_EQ(second.get(), fd);
  unique_fd third;
  third = std::move(second);
  EXPECT_EQ(third.get(), fd);
  EXPECT_TRUE(is_open(fd));
}

TEST_F(unique_fd_test, released_descriptors_stay_open) {
  const int fd = fresh();
  EXPECT_EQ(unique_fd(fd).release(), fd);
  EXPECT_TRUE(is_open(fd));
  close(fd);
}

}  // namespace
