// The question before destructive commands: what counts as an answer, and where it ends.
#include "commands/affirm.h"

#include "loader_test.h"

namespace {

constexpr char question[] = "Do you really want to do this (y/N)? ";

class affirmation_test : public loader_test {
 protected:
  affirmation_test() { affirm_on = true; }
  ~affirmation_test() override { affirm_on = false; }
};

TEST_F(affirmation_test, nothing_is_asked_or_read_while_asking_is_off) {
  affirm_on = false;
  root.set_input("n\n");
  EXPECT_TRUE(_affirmation());
  EXPECT_EQ(root.printed(), "");
  EXPECT_EQ(fgetc(stdin), 'n');
}

TEST_F(affirmation_test, byte_10_alone_ends_the_answer) {
  root.set_input("y\r\3es\rno\nnext");
  EXPECT_TRUE(_affirmation());
  EXPECT_EQ(root.printed(), std::string(question) + "y\n");
  EXPECT_EQ(fgetc(stdin), 'n') << "what follows the answer is not read";
}

TEST_F(affirmation_test, any_other_first_byte_aborts) {
  for (const char* answer : {"n\n", "\n", "\r\n", " y\n", "ny\n", "\377\n"}) {
    root.set_input(answer);
    EXPECT_FALSE(_affirmation()) << answer;
    EXPECT_TRUE(root.printed().ends_with("\n<aborted>\n")) << answer;
  }
}

TEST_F(affirmation_test, the_end_of_input_is_no_answer) {
  const struct {
    const char* input;
    const char* echo;
  } cases[] = {{"", ""}, {"y", "y"}, {"Y", "y"}, {"yes", "y"}, {"y\r", "y"}, {"n", "n"}};
  for (const auto& c : cases) {
    root.set_input(c.input);
    EXPECT_FALSE(_affirmation()) << c.input;
    EXPECT_EQ(root.printed(), std::string(question) + c.echo + "\n<aborted>\n");
  }
}

}  // namespace
