// Names as words of command lines: what is composed, and that a shell makes the very name of it again.
#include "util/shell_word.h"

#include <cstdio>
#include <string>
#include <vector>

#include "loader_test.h"
#include "util/exec.h"

namespace {

class shell_word_test : public loader_test {};

TEST_F(shell_word_test, ordinary_names_stay_as_they_are) {
  for (const char* name : {"image.rom", "/tmp/a-b_c.d+e", "dir/sub,dir/x@1:2=3%4^5", "", "-l", "r\xC3\xA4t",
                           "\xC4\x80\xC3\xBF"}) {
    shell_word quoted;
    shell_word bare;
    EXPECT_TRUE(quoted.set_quoted(name));
    EXPECT_TRUE(bare.set_bare(name));
    EXPECT_STREQ(quoted.text(), name);
    EXPECT_STREQ(bare.text(), name);
  }
}

TEST_F(shell_word_test, between_quotes_only_the_four_special_characters_are_escaped) {
  shell_word word;
  EXPECT_TRUE(word.set_quoted(R"(a\b"c$d`e)"));
  EXPECT_STREQ(word.text(), R"(a\\b\"c\$d\`e)");
  EXPECT_TRUE(word.set_quoted("!'();&|<>*?[]{}#~%^=\x01\x1b"));
  EXPECT_STREQ(word.text(), "!'();&|<>*?[]{}#~%^=\x01\x1b");
}

TEST_F(shell_word_test, without_quotes_everything_unusual_is_escaped) {
  shell_word word;
  EXPECT_TRUE(word.set_bare("/tmp/a;b&c"));
  EXPECT_STREQ(word.text(), "/tmp/a\\;b\\&c");
  EXPECT_TRUE(word.set_bare("$(x)`y`'z\"\\|<>*?[]{}#~!"));
  EXPECT_STREQ(word.text(), "\\$\\(x\\)\\`y\\`\\'z\\\"\\\\\\|\\<\\>\\*\\?\\[\\]\\{\\}\\#\\~\\!");
}

TEST_F(shell_word_test, names_of_256_characters_fit_and_longer_ones_are_refused) {
  shell_word word;
  const std::string longest(256, '"');
  EXPECT_TRUE(word.set_quoted(longest.c_str()));
  EXPECT_EQ(std::string(word.text()).size(), 512U);
  EXPECT_TRUE(word.set_bare(longest.c_str()));
  EXPECT_EQ(std::string(word.text()).size(), 512U);
  EXPECT_EQ(root.printed(), "");
  EXPECT_FALSE(word.set_quoted((longest + "x").c_str()));
  EXPECT_STREQ(word.text(), "");
  EXPECT_FALSE(word.set_bare((longest + "x").c_str()));
  const std::string refusal = "ERROR: File name too long, limit is 256 characters\n";
  EXPECT_EQ(root.printed(), refusal + refusal);
}

// The words of `line` as a tool sees them. The tool is any that succeeds without doing anything.
class shell_round_trip_test : public loader_test {
 protected:
  std::vector<std::string> words_of(const std::string& line) {
    root.forget();
    EXPECT_EQ(exec_system_cmd_quiet(("/bin/ps " + line).c_str()), 0) << line;
    EXPECT_EQ(root.events("run").size(), 1U) << line;
    const auto fields = root.events("run").at(0).fields;
    return {fields.begin() + 2, fields.end()};
  }
};

TEST_F(shell_round_trip_test, every_character_that_can_be_typed_reaches_the_tool) {
  std::string all;
  for (int byte = 1; byte < 256; byte++) {
    if (strchr("\t\n\r ", byte) == nullptr) all += static_cast<char>(byte);
  }
  shell_word word;
  ASSERT_TRUE(word.set_quoted(all.c_str()));
  EXPECT_EQ(words_of("\"" + std::string(word.text()) + "\""), lines({all}));
  ASSERT_TRUE(word.set_bare(all.c_str()));
  EXPECT_EQ(words_of(word.text()), lines({all}));
}

TEST_F(shell_round_trip_test, each_character_alone_first_and_last_reaches_the_tool) {
  for (const char character : std::string("\\\"$`'!;&|<>()*?[]{}#~%^=-")) {
    for (const std::string& name : {std::string(1, character), character + std::string("x"),
                                    "/x" + std::string(1, character), std::string(2, character)}) {
      shell_word word;
      ASSERT_TRUE(word.set_quoted(name.c_str()));
      EXPECT_EQ(words_of("\"" + std::string(word.text()) + "\""), lines({name}));
      ASSERT_TRUE(word.set_bare(name.c_str()));
      EXPECT_EQ(words_of(word.text()), lines({name}));
    }
  }
}

}  // namespace
