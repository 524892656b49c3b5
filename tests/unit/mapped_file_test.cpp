// Whole files in memory.
#include "util/mapped_file.h"

#include "loader_test.h"
#include "util/unique_fd.h"

namespace {

class mapped_file_test : public loader_test {};

TEST_F(mapped_file_test, shows_the_file_after_its_descriptor_is_closed) {
  root.write_file("/tmp/file", "contents");
  unique_fd fd(open("/tmp/file", O_RDONLY | O_CLOEXEC));
  const mapped_file file(fd.get(), 8);
  fd.reset();
  ASSERT_TRUE(file);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(file.data()), file.size()), "contents");
}

TEST_F(mapped_file_test, failure_is_told_with_errno) {
  root.write_file("/tmp/file", std::string(5000, 'x'));
  const unique_fd fd(open("/tmp/file", O_RDONLY | O_CLOEXEC));
  root.fail_call("mmap", {.match = "5000", .error = ENOMEM});
  const mapped_file file(fd.get(), 5000);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_FALSE(file);
}

}  // namespace
