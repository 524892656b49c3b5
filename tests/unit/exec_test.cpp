// The four runners of external commands: what they call success, what they show, how each step fails.
#include "util/exec.h"

#include <sys/wait.h>

#include "loader_test.h"
#include "util/signals.h"

namespace {

constexpr char tool[] = "/bin/ps";
// In its own process a shell ends by the signal itself, whichever shell it is.
constexpr char killed_tool[] = "kill -9 $$";
// The reader in between is the parent of the tool's shell.
constexpr char interrupted_reader[] = "kill -INT $PPID";

void reap_children() {
  while (waitpid(-1, nullptr, 0) > 0) {
  }
}

std::string repeated(const std::string& text, int count) {
  std::string all;
  while (count-- > 0)
    all += text;
  return all;
}

// ------------------------------------------------------------------------------------------------- composing

class compose_command_test : public loader_test {
 protected:
  template <typename Line>
  void fills_and_refuses() {
    Line line;
    const std::string longest(Line::size() - 1 - strlen("/bin/ps "), 'x');
    EXPECT_TRUE(compose_command(line, "%s %s", tool, longest.c_str()));
    EXPECT_EQ(line.text(), "/bin/ps " + longest);
    EXPECT_EQ(root.printed(), "");
    EXPECT_FALSE(compose_command(line, "%s %sx", tool, longest.c_str()));
    EXPECT_STREQ(line.text(), "");
    EXPECT_EQ(root.printed(), line_too_long(Line::size() - 1));
  }
};

TEST_F(compose_command_test, a_line_that_fits_is_kept_and_a_longer_one_refused_as_a_whole) {
  EXPECT_EQ(command_line::size(), 256U);
  fills_and_refuses<command_line>();
  fills_and_refuses<long_command_line>();
}

// --------------------------------------------------------------------------------------------- plain runners

class exec_system_cmd_test : public loader_test {};

TEST_F(exec_system_cmd_test, ctrl_c_is_heard_however_shortly_the_tool_runs) {
  sigint_install_test_interrupt();
  EXPECT_EQ(exec_system_cmd("kill -INT $PPID"), 0);
  EXPECT_EQ(test_interrupted, 1);
}

TEST_F(exec_system_cmd_test, ctrl_c_ends_the_tool_and_is_heard) {
  sigint_install_test_interrupt();
  EXPECT_EQ(exec_system_cmd("kill -INT $PPID; kill -INT $$; sleep 60"), 1);
  EXPECT_EQ(test_interrupted, 1);
  EXPECT_EQ(root.printed(), "ERROR: system(kill -INT $PPID; kill -INT $$; sleep 60) sys_rc=2 exitstatus=0\n");
}

// 128 and the number of the signal: what a shell answers whose tool Ctrl-C has ended.
TEST_F(exec_system_cmd_test, a_status_of_130_is_no_ctrl_c) {
  sigint_install_test_interrupt();
  EXPECT_EQ(exec_system_cmd("exit 130"), 1);
  EXPECT_EQ(exec_system_cmd_quiet("exit 130"), 1);
  EXPECT_EQ(test_interrupted, 0);
  EXPECT_EQ(root.printed(), "ERROR: system(exit 130) sys_rc=33280 exitstatus=130\n");
}

TEST_F(exec_system_cmd_test, an_interrupted_wait_goes_on) {
  sigint_install_test_interrupt();
  root.answer("ps", {.status = 2});
  root.fail_call("waitpid", {.error = EINTR, .times = 2});
  EXPECT_EQ(exec_system_cmd(tool), 1);
  EXPECT_EQ(root.printed(), "ERROR: system(/bin/ps) sys_rc=512 exitstatus=2\n");
}

TEST_F(exec_system_cmd_test, without_a_shell_the_status_is_that_of_a_missing_tool) {
  root.fail_call("posix_spawn", {.error = ENOENT});
  EXPECT_EQ(exec_system_cmd(tool), 1);
  EXPECT_EQ(root.printed(), "ERROR: system(/bin/ps) sys_rc=32512 exitstatus=127\n");
}

TEST_F(exec_system_cmd_test, a_system_call_that_fails_is_told_apart) {
  root.fail_call("posix_spawn", {.error = ENOMEM});
  EXPECT_EQ(exec_system_cmd(tool), 1);
  EXPECT_EQ(root.printed(), "ERROR: system(/bin/ps) returned -1\n");
}

TEST_F(exec_system_cmd_test, the_tool_keeps_the_signal_settings_of_the_shell) {
  sigint_install_ignore();
  EXPECT_EQ(exec_system_cmd(tool), 0);
  EXPECT_EQ(exec_system_cmd_quiet(tool), 0);
  ASSERT_EQ(root.events("run").size(), 2U);
  EXPECT_EQ(root.events("run")[0].fields[0], "ignored");
  EXPECT_EQ(root.events("run")[1].fields[0], "ignored");
}

class exec_system_cmd_quiet_test : public loader_test {};

TEST_F(exec_system_cmd_quiet_test, success_and_output_are_as_for_the_other) {
  root.answer("ps", {.out = "out\n"});
  log_level = 7;
  EXPECT_EQ(exec_system_cmd_quiet(tool), 0);
  EXPECT_EQ(root.printed(), "TRACE: exec_system_cmd_quiet:\nVERBOSE: system(/bin/ps)\nout\n");
}

TEST_F(exec_system_cmd_quiet_test, no_failure_is_reported) {
  root.answer("ps", {.status = 2});
  EXPECT_EQ(exec_system_cmd_quiet(tool), 1);
  EXPECT_EQ(exec_system_cmd_quiet(killed_tool), 1);
  root.fail_call("posix_spawn", {.error = ENOMEM});
  EXPECT_EQ(exec_system_cmd_quiet(tool), 1);
  EXPECT_EQ(root.printed(), "");
}

// -------------------------------------------------------------------------------------------- silence wanted

class check_stderr_test : public loader_test {};

TEST_F(check_stderr_test, silent_success_is_success) {
  EXPECT_EQ(exec_system_cmd_check_stderr(tool, false), 1);
  EXPECT_EQ(root.printed(), "");
  EXPECT_EQ(root.shell_lines(), lines({"/bin/ps 2>&1"}));
}

TEST_F(check_stderr_test, verbosity_shows_the_line_before_it_runs) {
  log_level = 7;
  EXPECT_EQ(exec_system_cmd_check_stderr(tool, true), 1);
  EXPECT_EQ(root.printed(),
            "TRACE: exec_system_cmd_check_stderr:\n"
            "VERBOSE: exec_system_cmd_check_stderr: fork popen(/bin/ps 2>&1)\n");
}

TEST_F(check_stderr_test, one_warning_of_a_successful_tool_is_a_failure) {
  root.answer("ps", {.err = "warning\n"});
  EXPECT_EQ(exec_system_cmd_check_stderr(tool, false), 0);
  EXPECT_EQ(root.printed(), "ERROR: Exit status=1\n");
}

TEST_F(check_stderr_test, lines_are_shown_as_notes_when_asked_for) {
  root.answer("ps", {.out = "second\nthird without end", .err = "first\n"});
  EXPECT_EQ(exec_system_cmd_check_stderr(tool, true), 0);
  EXPECT_EQ(root.printed(), "NOTE: first\nNOTE: second\nNOTE: third without endERROR: Exit status=3\n");
}

TEST_F(check_stderr_test, what_a_tool_says_is_not_taken_for_a_format) {
  root.answer("ps", {.out = "100 %d %s\n"});
  EXPECT_EQ(exec_system_cmd_check_stderr(tool, true), 0);
  EXPECT_EQ(root.printed(), "NOTE: 100 %d %s\nERROR: Exit status=1\n");
}

TEST_F(check_stderr_test, a_failing_tool_is_reported_by_reader_and_shell) {
  root.answer("ps", {.status = 3, .out = "line\n"});
  EXPECT_EQ(exec_system_cmd_check_stderr(tool, false), 0);
  EXPECT_EQ(root.printed(), "ERROR: Child exit status=3\nERROR: Exit status=255\n");
}

TEST_F(check_stderr_test, a_killed_tool_is_reported_by_reader_and_shell) {
  EXPECT_EQ(exec_system_cmd_check_stderr(killed_tool, false), 0);
  EXPECT_EQ(root.printed(), "ERROR: Child unclean exit\nERROR: Exit status=255\n");
}

TEST_F(check_stderr_test, an_interrupted_reader_is_a_failure) {
  EXPECT_EQ(exec_system_cmd_check_stderr(interrupted_reader, false), 0);
  EXPECT_EQ(root.printed(), "\nERROR: Terminated by signal\n");
}

TEST_F(check_stderr_test, the_line_count_has_the_eight_bits_of_an_exit_status) {
  struct {
    int count;
    int result;
    const char* printed;
  } constexpr cases[] = {
      {255, 0, "ERROR: Exit status=255\n"},
      {256, 1, ""},
      {257, 0, "ERROR: Exit status=1\n"},
      {512, 1, ""},
  };
  for (const auto& c : cases) {
    root.answer("ps", {.out = repeated("line\n", c.count)});
    EXPECT_EQ(exec_system_cmd_check_stderr(tool, false), c.result) << c.count;
    EXPECT_EQ(root.printed(), c.printed) << c.count;
  }
}

TEST_F(check_stderr_test, long_lines_count_once_per_255_characters) {
  struct {
    size_t length;  // without the line feed
    const char* printed;
  } constexpr cases[] = {
      {254, "ERROR: Exit status=1\n"},
      {255, "ERROR: Exit status=2\n"},
      {509, "ERROR: Exit status=2\n"},
      {510, "ERROR: Exit status=3\n"},
  };
  for (const auto& c : cases) {
    root.answer("ps", {.out = std::string(c.length, 'x') + "\n"});
    EXPECT_EQ(exec_system_cmd_check_stderr(tool, false), 0) << c.length;
    EXPECT_EQ(root.printed(), c.printed) << c.length;
  }
}

TEST_F(check_stderr_test, pieces_of_a_long_line_are_notes_each) {
  root.answer("ps", {.out = std::string(255, 'x') + "rest\n"});
  EXPECT_EQ(exec_system_cmd_check_stderr(tool, true), 0);
  EXPECT_EQ(root.printed(), "NOTE: " + std::string(255, 'x') + "NOTE: rest\nERROR: Exit status=2\n");
}

TEST_F(check_stderr_test, fork_that_fails_runs_nothing) {
  root.fail_call("fork", {.error = EAGAIN});
  EXPECT_EQ(exec_system_cmd_check_stderr(tool, false), 0);
  EXPECT_EQ(root.printed(), "ERROR: exec_system_cmd_check_stderr(/bin/ps): fork failed\n");
  EXPECT_EQ(root.ran(), lines());
}

TEST_F(check_stderr_test, wait_that_fails_is_a_failure) {
  root.fail_call("waitpid", {.match = "program", .error = ECHILD, .times = 1});
  EXPECT_EQ(exec_system_cmd_check_stderr(tool, false), 0);
  EXPECT_EQ(root.printed(), "ERROR: exec_system_cmd_check_stderr(/bin/ps): error waiting for child\n");
  reap_children();
}

TEST_F(check_stderr_test, a_tool_that_cannot_be_started_is_reported_by_reader_and_shell) {
  root.fail_call("posix_spawn", {.error = EMFILE});
  EXPECT_EQ(exec_system_cmd_check_stderr(tool, false), 0);
  EXPECT_EQ(root.printed(),
            "ERROR: exec_system_cmd_check_stderr: popen(/bin/ps 2>&1) error(Too many open files)\n"
            "ERROR: Exit status=255\n");
}

// ---------------------------------------------------------------------------------------------- output shown

class print_with_match_test : public loader_test {
 protected:
  // Result and screen of a run whose tool prints `out`.
  std::pair<int, std::string> run(const std::string& out, const char* print, const char* dont_print,
                                  bool notes) {
    root.answer("ps", {.out = out});
    const int result = exec_system_cmd_print_with_match(tool, print, dont_print, notes);
    return {result, root.printed()};
  }
  using outcome = std::pair<int, std::string>;
};

TEST_F(print_with_match_test, without_substrings_every_line_is_shown_plainly) {
  EXPECT_EQ(run("one\ntwo\n", nullptr, nullptr, true), outcome(0, "one\ntwo\n"));
  EXPECT_EQ(root.shell_lines(), lines({"/bin/ps 2>&1"}));
}

TEST_F(print_with_match_test, what_a_tool_says_is_not_taken_for_a_format) {
  EXPECT_EQ(run("100 %d %s\n", nullptr, nullptr, true), outcome(0, "100 %d %s\n"));
  EXPECT_EQ(run("100 %d %s\n", "%d", nullptr, true), outcome(0, "NOTE: 100 %d %s\n"));
  EXPECT_EQ(run("100 %d %s\n", "100", nullptr, false), outcome(0, "100 %d %s\n"));
}

TEST_F(print_with_match_test, standard_error_is_read_too) {
  root.answer("ps", {.err = "from stderr\n"});
  EXPECT_EQ(exec_system_cmd_print_with_match(tool, "stderr", nullptr, true), 0);
  EXPECT_EQ(root.printed(), "NOTE: from stderr\n");
}

TEST_F(print_with_match_test, highlighted_lines_are_notes_only_when_asked_for) {
  EXPECT_EQ(run("a match b\nother\n", "match", nullptr, true), outcome(0, "NOTE: a match b\nother\n"));
  EXPECT_EQ(run("a match b\nother\n", "match", nullptr, false), outcome(0, "a match b\nother\n"));
}

TEST_F(print_with_match_test, hidden_lines_are_dropped) {
  EXPECT_EQ(run("keep\nhide me\nkeep too\n", nullptr, "hide", false), outcome(0, "keep\nkeep too\n"));
}

TEST_F(print_with_match_test, a_line_that_has_both_is_shown) {
  EXPECT_EQ(run("show and hide\nhide\nshow\n", "show", "hide", true),
            outcome(0, "NOTE: show and hide\nNOTE: show\n"));
  EXPECT_EQ(run("show and hide\n", "show", "hide", false), outcome(0, "show and hide\n"));
}

TEST_F(print_with_match_test, each_piece_of_a_long_line_is_matched_for_itself) {
  const std::string head(255, 'x');
  EXPECT_EQ(run(head + "hide\n", nullptr, "hide", false), outcome(0, head));
  EXPECT_EQ(run(head + "show\n", "show", nullptr, true), outcome(0, head + "NOTE: show\n"));
}

TEST_F(print_with_match_test, traces_name_the_arguments) {
  log_level = 7;
  EXPECT_EQ(run("", nullptr, nullptr, false).second,
            "TRACE: exec_system_cmd_print_with_match: print='' dont_print='' notes=false\n"
            "VERBOSE: exec_system_cmd_print_with_match: fork popen(/bin/ps 2>&1)\n");
  EXPECT_EQ(run("", "p", "d", true).second,
            "TRACE: exec_system_cmd_print_with_match: print='p' dont_print='d' notes=true\n"
            "VERBOSE: exec_system_cmd_print_with_match: fork popen(/bin/ps 2>&1)\n");
}

TEST_F(print_with_match_test, a_failing_tool_gives_one) {
  root.answer("ps", {.status = 1, .out = "said\n"});
  EXPECT_EQ(exec_system_cmd_print_with_match(tool, nullptr, nullptr, false), 1);
  EXPECT_EQ(root.printed(), "said\nERROR: Child exit status=1\nERROR: Exit status=255\n");
}

TEST_F(print_with_match_test, a_killed_tool_gives_one) {
  EXPECT_EQ(exec_system_cmd_print_with_match(killed_tool, nullptr, nullptr, false), 1);
  EXPECT_EQ(root.printed(), "ERROR: Child unclean exit\nERROR: Exit status=255\n");
}

TEST_F(print_with_match_test, an_interrupted_run_gives_minus_one_behind_an_empty_line) {
  EXPECT_EQ(exec_system_cmd_print_with_match(interrupted_reader, nullptr, nullptr, false), -1);
  EXPECT_EQ(root.printed(), "\nERROR: Terminated by signal\n");
}

TEST_F(print_with_match_test, fork_wait_and_start_failures_give_one) {
  root.fail_call("fork", {.error = EAGAIN, .times = 1});
  EXPECT_EQ(exec_system_cmd_print_with_match(tool, nullptr, nullptr, false), 1);
  EXPECT_EQ(root.printed(), "ERROR: exec_system_cmd_print_with_match(/bin/ps): fork failed\n");
  root.fail_call("waitpid", {.match = "program", .error = ECHILD, .times = 1});
  EXPECT_EQ(exec_system_cmd_print_with_match(tool, nullptr, nullptr, false), 1);
  EXPECT_EQ(root.printed(), "ERROR: exec_system_cmd_print_with_match(/bin/ps): error waiting for child\n");
  reap_children();
  root.fail_call("posix_spawn", {.error = ENOMEM});
  EXPECT_EQ(exec_system_cmd_print_with_match(tool, nullptr, nullptr, false), 1);
  EXPECT_EQ(root.printed(),
            "ERROR: exec_system_cmd_print_with_match: popen(/bin/ps 2>&1) error(Cannot allocate memory)\n"
            "ERROR: Exit status=255\n");
}

// ------------------------------------------------------------------------------------------------------ both

class capturing_runner_test : public loader_test {};

TEST_F(capturing_runner_test, tools_can_be_interrupted_though_the_shell_ignores_it) {
  sigint_install_ignore();
  EXPECT_EQ(exec_system_cmd_check_stderr(tool, false), 1);
  EXPECT_EQ(exec_system_cmd_print_with_match(tool, nullptr, nullptr, false), 0);
  ASSERT_EQ(root.events("run").size(), 2U);
  EXPECT_EQ(root.events("run")[0].fields[0], "default");
  EXPECT_EQ(root.events("run")[1].fields[0], "default");
  struct sigaction action;
  sigaction(SIGINT, nullptr, &action);
  EXPECT_EQ(action.sa_handler, SIG_IGN) << "the shell itself still ignores it";
}

// The stand-in sends the signal to the forked reader before that has set anything.
TEST_F(capturing_runner_test, ctrl_c_ends_the_reader_from_its_first_moment) {
  sigint_install_ignore();
  root.fail_call("fork", {.error = 0, .result = SIGINT});
  EXPECT_EQ(exec_system_cmd_check_stderr(tool, false), 0);
  EXPECT_EQ(root.printed(), "\nERROR: Terminated by signal\n");
  EXPECT_EQ(exec_system_cmd_print_with_match(tool, nullptr, nullptr, false), -1);
  EXPECT_EQ(root.printed(), "\nERROR: Terminated by signal\n");
  EXPECT_EQ(root.ran(), lines());
}

TEST_F(capturing_runner_test, an_interrupted_wait_goes_on) {
  root.answer("ps", {.status = 3});
  root.fail_call("waitpid", {.match = "program", .error = EINTR, .times = 2});
  EXPECT_EQ(exec_system_cmd_print_with_match(tool, nullptr, nullptr, false), 1);
  EXPECT_EQ(root.printed(), "ERROR: Child exit status=3\nERROR: Exit status=255\n");
}

TEST_F(capturing_runner_test, a_line_that_fills_the_buffer_runs_and_a_longer_one_is_refused_with_an_error) {
  const size_t room = long_command_line::size() - 1 - strlen(" 2>&1");
  EXPECT_GE(room, 250U);
  const std::string longest = "/bin/ps " + std::string(room - strlen("/bin/ps "), 'x');
  EXPECT_EQ(exec_system_cmd_check_stderr(longest.c_str(), false), 1);
  EXPECT_EQ(exec_system_cmd_print_with_match(longest.c_str(), nullptr, nullptr, false), 0);
  EXPECT_EQ(root.shell_lines(), lines({longest + " 2>&1", longest + " 2>&1"}));
  EXPECT_EQ(root.printed(), "");
  root.forget();
  for (const size_t more : {1, 2, 6, 1000}) {
    const std::string line = longest + std::string(more, 'x');
    EXPECT_EQ(exec_system_cmd_check_stderr(line.c_str(), false), 0);
    EXPECT_EQ(root.printed(), line_too_long(long_command_line::size() - 1));
    EXPECT_EQ(exec_system_cmd_print_with_match(line.c_str(), nullptr, nullptr, false), 1);
    EXPECT_EQ(root.printed(), line_too_long(long_command_line::size() - 1));
  }
  EXPECT_EQ(root.shell_lines(), lines());
}

}  // namespace
