// Pipes to and from tools end with the tool.
#include "util/command_pipe.h"

#include <sys/wait.h>

#include "loader_test.h"

namespace {

class command_pipe_test : public loader_test {};

TEST_F(command_pipe_test, reading_pipe_yields_the_output_and_the_status) {
  root.answer("ps", {.status = 3, .out = "one line\n"});
  command_pipe tool("/bin/ps", "r");
  ASSERT_TRUE(tool);
  char line[64] = "";
  EXPECT_NE(fgets(line, sizeof line, tool.stream()), nullptr);
  EXPECT_STREQ(line, "one line\n");
  const int status = tool.close();
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 3);
}

TEST_F(command_pipe_test, writing_pipe_feeds_the_input) {
  command_pipe tool("/bin/ps", "w");
  ASSERT_TRUE(tool);
  fputs("fed", tool.stream());
  EXPECT_EQ(tool.close(), 0);
  ASSERT_EQ(root.events("input").size(), 1U);
  EXPECT_EQ(root.events("input")[0].fields.back(), "fed");
}

TEST_F(command_pipe_test, end_of_the_owner_waits_for_the_tool) {
  {
    const command_pipe tool("/bin/ps", "r");
    EXPECT_GE(tool.fd(), 0);
  }
  EXPECT_EQ(root.events("exit").size(), 1U);
}

TEST_F(command_pipe_test, tools_do_not_inherit_the_pipe) {
  const command_pipe tool("/bin/ps", "r");
  EXPECT_EQ(fcntl(tool.fd(), F_GETFD), FD_CLOEXEC);
}

TEST_F(command_pipe_test, a_tool_that_cannot_be_started_is_told_with_errno) {
  root.fail_call("popen", {.error = EMFILE});
  const command_pipe tool("/bin/ps", "r");
  EXPECT_EQ(errno, EMFILE);
  EXPECT_FALSE(tool);
}

}  // namespace
