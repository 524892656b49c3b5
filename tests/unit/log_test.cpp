// What is shown at which verbosity, and what happens to messages while the console is busy.
#include "util/log.h"

#include "loader_test.h"

namespace {

constexpr char collected[] = "/tmp/recovery.log";

class log_test : public loader_test {
 protected:
  static void one_of_each(unsigned highest) {
    for (unsigned level = 0; level <= highest; level++)
      log_printf(level, "message %u\n", level);
  }
};

// ---------------------------------------------------------------------------------------------------- levels

TEST_F(log_test, errors_are_shown_and_details_are_not_unless_asked_for) {
  EXPECT_EQ(log_level, 3U);
  EXPECT_EQ(log_state, 1);
  one_of_each(7);
  EXPECT_EQ(root.printed(), "message 0\nmessage 1\nNOTE: message 2\nERROR: message 3\n");
}

TEST_F(log_test, every_level_has_its_prefix_and_those_above_seven_none) {
  log_level = 0xFFFFFFFF;
  one_of_each(9);
  log_printf(0xFFFFFFFF, "the highest\n");
  EXPECT_EQ(root.printed(),
            "message 0\nmessage 1\nNOTE: message 2\nERROR: message 3\nINFO: message 4\nPROGRESS: message 5\n"
            "VERBOSE: message 6\nTRACE: message 7\nmessage 8\nmessage 9\nthe highest\n");
}

TEST_F(log_test, verbosity_admits_its_own_level_and_all_below) {
  for (log_level = 0; log_level <= 8; log_level++) {
    log_printf(log_level, "own");
    EXPECT_TRUE(root.printed().ends_with("own")) << log_level;
    log_printf(log_level + 1, "above");
    EXPECT_EQ(root.printed(), "") << log_level;
  }
}

TEST_F(log_test, no_line_feed_is_added) {
  log_printf(level_plain, "CLI> ");
  log_printf(level_plain, "%s", "");
  log_printf(level_note, "%s", "");
  EXPECT_EQ(root.printed(), "CLI> NOTE: ");
}

TEST_F(log_test, messages_are_on_the_console_at_once) {
  setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
  log_printf(level_plain, "no line feed, no flush of ours");
  EXPECT_EQ(root.read_file("/.harness/printed"), "no line feed, no flush of ours");
  setvbuf(stdout, nullptr, _IOLBF, 0);
}

TEST_F(log_test, long_messages_are_shown_whole) {
  const std::string text(5000, 'x');
  log_printf(level_error, "%s", text.c_str());
  EXPECT_EQ(root.printed(), "ERROR: " + text);
}

// ------------------------------------------------------------------------------------------------ suspension

TEST_F(log_test, suspended_messages_wait_in_the_file_and_come_back_in_order) {
  log_suspend();
  EXPECT_EQ(log_state, 0);
  log_printf(level_plain, "plain ");
  log_printf(level_note, "note\n");
  log_printf(level_error, "error\n");
  EXPECT_EQ(root.printed(), "");
  EXPECT_EQ(root.read_file(collected), "plain NOTE: note\nERROR: error\n");
  log_resume();
  EXPECT_EQ(log_state, 1);
  EXPECT_EQ(root.printed(), "plain NOTE: note\nERROR: error\n");
  EXPECT_FALSE(root.exists(collected));
  log_printf(level_plain, "after\n");
  EXPECT_EQ(root.printed(), "after\n");
}

TEST_F(log_test, the_file_is_complete_after_every_message) {
  log_suspend();
  EXPECT_FALSE(root.exists(collected));
  log_printf(level_error, "first");
  EXPECT_EQ(root.read_file(collected), "ERROR: first");
  log_printf(level_error, "second");
  EXPECT_EQ(root.read_file(collected), "ERROR: firstERROR: second");
}

TEST_F(log_test, verbosity_filters_when_a_message_is_logged_not_when_it_is_replayed) {
  log_suspend();
  log_printf(level_info, "dropped\n");
  log_level = 8;
  log_printf(level_trace, "kept\n");
  log_printf(8, "bare\n");
  log_level = 1;
  EXPECT_EQ(root.read_file(collected), "TRACE: kept\nbare\n");
  log_resume();
  EXPECT_EQ(root.printed(), "TRACE: kept\nbare\n");
}

TEST_F(log_test, suspension_starts_empty_whatever_lay_there) {
  root.write_file(collected, "of an earlier life\n");
  log_suspend();
  EXPECT_FALSE(root.exists(collected));
  log_resume();
  EXPECT_EQ(root.printed(), "");
}

TEST_F(log_test, long_lines_come_back_joined) {
  for (const size_t length : {254, 255, 256, 257, 510, 511, 1000}) {
    const std::string text(length, 'y');
    log_suspend();
    log_printf(level_plain, "%s\n", text.c_str());
    log_printf(level_plain, "next");
    log_resume();
    EXPECT_EQ(root.printed(), text + "\nnext") << length;
  }
}

TEST_F(log_test, replayed_text_is_not_taken_for_a_format) {
  log_suspend();
  log_printf(level_plain, "%s", "100%s %n %d\n");
  log_resume();
  EXPECT_EQ(root.printed(), "100%s %n %d\n");
}

TEST_F(log_test, resuming_without_a_file_prints_nothing) {
  log_suspend();
  log_resume();
  EXPECT_EQ(root.printed(), "");
  EXPECT_EQ(log_state, 1);
}

TEST_F(log_test, a_file_that_cannot_be_opened_loses_the_message_but_keeps_the_console_quiet) {
  log_suspend();
  root.fail_call("fopen", {.match = collected, .error = EROFS, .times = 1});
  log_printf(level_error, "lost\n");
  log_printf(level_error, "kept\n");
  log_resume();
  EXPECT_EQ(root.printed(), "ERROR: kept\n");
}

TEST_F(log_test, tools_do_not_inherit_the_file) {
  log_suspend();
  named_pipe file(collected);
  const std::string text(200000, 'x');  // more than a pipe holds
  EXPECT_TRUE(is_kept_from_tools(
      collected, file.fd(), [&] { log_printf(level_plain, "%s", text.c_str()); },
      [&] { file.take(text.size()); }));
  EXPECT_TRUE(is_kept_from_tools(collected, file.fd(), log_resume, [&] { file.let_go(); }));
}

}  // namespace
