// Pipes to and from tools end with the tool.
#include "util/command_pipe.h"

#include <sys/wait.h>

#include "loader_test.h"
#include "util/signals.h"

namespace {

class command_pipe_test : public loader_test {};

TEST_F(command_pipe_test, without_memory_for_the_stream_nothing_is_started) {
  root.fail_call("fdopen", {.error = ENOMEM});
  const command_pipe tool("/bin/ps", "r");
  EXPECT_FALSE(tool);
  EXPECT_EQ(root.ran(), lines());
}

TEST_F(command_pipe_test, without_memory_for_its_pipe_no_tool_has_the_console) {
  for (const char* mode : {"r", "w"}) {
    root.fail_call("realloc", {.error = ENOMEM, .times = 1});
    const command_pipe tool("/bin/ps", mode);
    EXPECT_FALSE(tool);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(root.ran(), lines());
  }
}

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

TEST_F(command_pipe_test, a_tool_of_the_shells_group_is_reached_by_ctrl_c) {
  command_pipe tool("kill -INT $$; sleep 60", "r");
  const int status = tool.close();
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGINT);
}

// Two processes, of which the second alone holds the output.
TEST_F(command_pipe_test, a_tool_in_its_own_group_can_be_ended_with_all_its_processes) {
  root.answer("ps", {.out = "begun\n", .hold_ms = 60000});
  command_pipe tool("/bin/ps | while read line; do echo $line; done", "r", command_pipe::group::its_own);
  char line[64] = "";
  EXPECT_NE(fgets(line, sizeof line, tool.stream()), nullptr);
  const int output = fcntl(tool.fd(), F_DUPFD_CLOEXEC, 3);
  const int status = tool.end();
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGTERM);
  EXPECT_EQ(read(output, line, sizeof line), 0) << "nobody is left who could write";
  close(output);
}

TEST_F(command_pipe_test, a_tool_that_has_ended_is_not_waited_for) {
  command_pipe tool("exit 3", "r", command_pipe::group::its_own);
  siginfo_t ended;
  EXPECT_EQ(waitid(P_ALL, 0, &ended, WEXITED | WNOWAIT), 0);
  const int status = tool.end();
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 3);
  EXPECT_EQ(root.events("sleep").size(), 0U);
}

TEST_F(command_pipe_test, a_tool_that_does_not_end_is_killed) {
  command_pipe tool("trap '' TERM; echo begun; while :; do sleep 1; done", "r", command_pipe::group::its_own);
  char line[64] = "";
  EXPECT_NE(fgets(line, sizeof line, tool.stream()), nullptr);
  const int status = tool.end();
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGKILL);
  size_t looks = 0;
  for (const device_event& event : root.events("sleep"))
    looks += event.fields[0] == "0.05";
  EXPECT_EQ(looks, 20U) << "a second in all";
}

TEST_F(command_pipe_test, a_tool_that_has_ended_is_only_reaped) {
  root.answer("ps", {.status = 3});
  command_pipe tool("/bin/ps", "r", command_pipe::group::its_own);
  EXPECT_EQ(fgetc(tool.stream()), EOF);
  while (root.events("exit").empty())
    usleep(1000);
  EXPECT_EQ(WEXITSTATUS(tool.end()), 3);
}

// A tool whose reader has gone ends, whatever the shell survives.
TEST_F(command_pipe_test, tools_do_not_inherit_that_a_broken_pipe_is_survived) {
  const sigpipe_ignored guard;
  command_pipe tool("kill -PIPE $$", "r");
  const int status = tool.close();
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGPIPE);
}

TEST_F(command_pipe_test, a_tool_that_cannot_be_started_is_told_with_errno) {
  root.fail_call("posix_spawn", {.error = EMFILE});
  const command_pipe tool("/bin/ps", "r");
  EXPECT_EQ(errno, EMFILE);
  EXPECT_FALSE(tool);
}

}  // namespace
