// The boot environment through its tools: command lines to the byte, values cut, every failure.
#include "bootenv/environment.h"

#include "loader_test.h"

namespace {

// ---------------------------------------------------------------------------------------------- writing

class uboot_env_set_val_test : public loader_test {};

TEST_F(uboot_env_set_val_test, empty_and_null_values_delete_the_variable) {
  for (const char* value : {"", static_cast<const char*>(nullptr)}) {
    root.set_env("bootcmd", "run flashboot");
    root.forget();
    EXPECT_TRUE(uboot_env_set_val("bootcmd", value));
    EXPECT_EQ(root.shell_lines(), lines({"/usr/sbin/fw_setenv bootcmd  > /dev/null 2>&1"}));
    EXPECT_FALSE(root.env().contains("bootcmd"));
    char buffer[32];
    EXPECT_FALSE(uboot_env_get_val("bootcmd", buffer, sizeof buffer));
  }
}

TEST_F(uboot_env_set_val_test, without_a_name_nothing_is_run) {
  EXPECT_FALSE(uboot_env_set_val(nullptr, "x"));
  EXPECT_FALSE(uboot_env_set_val("", "x"));
  EXPECT_EQ(root.shell_lines(), lines());
  EXPECT_EQ(root.printed(), "");
}

TEST_F(uboot_env_set_val_test, a_line_that_does_not_fit_is_refused_not_cut) {
  const size_t frame = strlen("/usr/sbin/fw_setenv name  > /dev/null 2>&1");
  const std::string longest(255 - frame, 'v');
  EXPECT_TRUE(uboot_env_set_val("name", longest.c_str()));
  EXPECT_EQ(root.env()["name"], longest);
  root.forget();
  EXPECT_FALSE(uboot_env_set_val("name", (longest + "v").c_str()));
  EXPECT_EQ(root.shell_lines(), lines());
  EXPECT_EQ(root.printed(), line_too_long(255));
}

TEST_F(uboot_env_set_val_test, traces_itself_and_the_runner) {
  log_level = 7;
  EXPECT_TRUE(uboot_env_set_val("a", "b"));
  EXPECT_EQ(
      root.printed(),
      "TRACE: uboot_env_set_val:\nTRACE: exec_system_cmd:\nVERBOSE: system(/usr/sbin/fw_setenv a b )\n");
}

// ---------------------------------------------------------------------------------------------- reading

class uboot_env_get_val_test : public loader_test {
 protected:
  // Result and text of a read into a buffer of `size` bytes.
  std::pair<int, std::string> get(const char* name, size_t size = 64) {
    std::string buffer(size, '?');
    const int result = uboot_env_get_val(name, buffer.data(), size);
    EXPECT_NE(buffer.find('\0'), std::string::npos) << "not terminated";
    return {result, buffer.c_str()};
  }
  using outcome = std::pair<int, std::string>;
};

TEST_F(uboot_env_get_val_test, reads_the_bare_value) {
  root.set_env("bootcmd", "run flashboot");
  EXPECT_EQ(get("bootcmd"), outcome(1, "run flashboot"));
  EXPECT_EQ(root.shell_lines(), lines({"/usr/sbin/fw_printenv -n bootcmd 2>/dev/null"}));
  EXPECT_EQ(root.printed(), "");
}

TEST_F(uboot_env_get_val_test, a_missing_variable_gives_zero_silently) {
  EXPECT_EQ(get("nothing"), outcome(0, ""));
  EXPECT_EQ(root.printed(), "");
  log_level = 6;
  EXPECT_EQ(get("nothing"), outcome(0, ""));
  EXPECT_EQ(root.printed(), "VERBOSE: uboot_env_get_val: pclose() exit status=1\n");
}

TEST_F(uboot_env_get_val_test, an_empty_value_gives_zero) {
  root.set_env("empty", "");
  EXPECT_EQ(get("empty"), outcome(0, ""));
  root.answer("fw_printenv", {.out = ""});
  EXPECT_EQ(get("empty"), outcome(0, ""));
}

TEST_F(uboot_env_get_val_test, a_long_value_is_cut_to_two_less_than_the_buffer) {
  root.set_env("name", "0123456789");
  EXPECT_EQ(get("name", 12), outcome(1, "0123456789"));
  EXPECT_EQ(get("name", 11), outcome(1, "012345678"));
  EXPECT_EQ(get("name", 4), outcome(1, "01"));
  EXPECT_EQ(get("name", 3), outcome(1, "0"));
  EXPECT_EQ(get("name", 2), outcome(0, ""));
  EXPECT_EQ(get("name", 1), outcome(0, ""));
}

TEST_F(uboot_env_get_val_test, only_the_first_line_counts_with_or_without_its_end) {
  root.answer("fw_printenv", {.times = 1, .out = "first\nsecond\n"});
  EXPECT_EQ(get("name"), outcome(1, "first"));
  root.answer("fw_printenv", {.times = 1, .out = "unended"});
  EXPECT_EQ(get("name"), outcome(1, "unended"));
  root.answer("fw_printenv", {.times = 1, .out = "\nsecond\n"});
  EXPECT_EQ(get("name"), outcome(0, ""));
}

TEST_F(uboot_env_get_val_test, the_tools_complaints_are_discarded) {
  root.answer("fw_printenv", {.out = "value\n", .err = "Warning: Bad CRC\n"});
  EXPECT_EQ(get("name"), outcome(1, "value"));
  EXPECT_EQ(root.printed(), "");
}

TEST_F(uboot_env_get_val_test, a_failing_tool_gives_zero_whatever_it_printed) {
  root.answer("fw_printenv", {.status = 3, .out = "value\n"});
  log_level = 6;
  EXPECT_EQ(get("name").first, 0);
  EXPECT_EQ(root.printed(), "VERBOSE: uboot_env_get_val: pclose() exit status=3\n");
}

TEST_F(uboot_env_get_val_test, a_killed_tool_gives_zero) {
  log_level = 6;
  EXPECT_EQ(get("name 2>/dev/null; kill -9 $$;").first, 0);
  EXPECT_EQ(root.printed(), "VERBOSE: uboot_env_get_val: pclose() unclean exit\n");
}

TEST_F(uboot_env_get_val_test, a_tool_that_cannot_be_started_is_an_error) {
  root.fail_call("posix_spawn", {.error = EMFILE});
  EXPECT_EQ(get("bootcmd"), outcome(0, ""));
  EXPECT_EQ(root.printed(),
            "ERROR: uboot_env_get_val: popen(/usr/sbin/fw_printenv -n bootcmd 2>/dev/null)\n");
}

TEST_F(uboot_env_get_val_test, without_buffer_size_or_name_nothing_is_run) {
  char buffer[8] = "kept";
  EXPECT_FALSE(uboot_env_get_val("name", nullptr, 8));
  EXPECT_FALSE(uboot_env_get_val("name", buffer, 0));
  EXPECT_FALSE(uboot_env_get_val(nullptr, buffer, 8));
  EXPECT_FALSE(uboot_env_get_val("", buffer, 8));
  EXPECT_STREQ(buffer, "kept");
  EXPECT_EQ(root.shell_lines(), lines());
}

TEST_F(uboot_env_get_val_test, a_line_that_does_not_fit_128_bytes_is_refused_not_cut) {
  const std::string longest(127 - strlen("/usr/sbin/fw_printenv -n  2>/dev/null"), 'n');
  root.set_env(longest, "value");
  EXPECT_EQ(get(longest.c_str()), outcome(1, "value"));
  root.forget();
  EXPECT_EQ(get((longest + "n").c_str()), outcome(0, ""));
  EXPECT_EQ(root.shell_lines(), lines());
  EXPECT_EQ(root.printed(), line_too_long(127));
}

// ---------------------------------------------------------------------------------------------- active bank

class uboot_env_get_active_bank_test : public loader_test {};

TEST_F(uboot_env_get_active_bank_test, only_the_three_exact_texts_name_a_bank) {
  struct {
    const char* value;
    int bank;
  } constexpr cases[] = {
      {"1", 1},       {"2", 2},  {"single", 3}, {"Single", 0},
      {"SINGLE", 0},  {"1 ", 0}, {" 1", 0},     {"3", 0},
      {"0", 0},       {"01", 0}, {"", 0},       {"singl", 0},
      {"single2", 0}, {"12", 0}, {"none", 0},   {"1111111111111111111111111111111111111111", 0},
  };
  for (const auto& c : cases) {
    root.set_env("bootbank", c.value);
    EXPECT_EQ(uboot_env_get_active_bank(), c.bank) << "'" << c.value << "'";
  }
  EXPECT_EQ(root.printed(), "");
}

TEST_F(uboot_env_get_active_bank_test, a_missing_variable_or_tool_names_none) {
  EXPECT_TRUE(uboot_env_set_val("bootbank", ""));
  EXPECT_EQ(uboot_env_get_active_bank(), 0);
  root.remove("/usr/sbin/fw_printenv");
  EXPECT_EQ(uboot_env_get_active_bank(), 0);
  EXPECT_EQ(root.printed(), "");
}

TEST_F(uboot_env_get_active_bank_test, traces_both_functions) {
  log_level = 7;
  EXPECT_EQ(uboot_env_get_active_bank(), 1);
  EXPECT_EQ(root.printed(), "TRACE: uboot_env_get_active_bank:\nTRACE: uboot_env_get_val:\n");
}

}  // namespace
