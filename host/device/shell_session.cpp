// Keys that are sent: a blank with a backspace behind it, Ctrl-C (3), Enter (13), and
// text. Texts that are known: the prompt, the question, the notice of a start.
#include "device/shell_session.h"

#include <fmt/format.h>

#include <algorithm>

#include "device/failure.h"

namespace {

constexpr const char* prompt = "CLI> ";
constexpr const char* question = "Do you really want to do this (y/N)? ";
constexpr const char* start_notice = "All rights reserved.\r\n";  // `version` does not show it
constexpr const char* ctrl_c = "\x03";
constexpr const char* enter = "\r";
constexpr size_t longest_command = 255;

// Has no effect in the line editor, whatever stands in the line, and is no yes to a question. Whoever waits
// for a line echoes it; a command that runs leaves it in the queue, where it does no harm later.
constexpr const char* probe = " \b";
constexpr milliseconds probe_limit{1000};
constexpr milliseconds settle{300};        // an echo is complete when nothing follows for so long
constexpr milliseconds prompt_settle{30};  // a prompt is the last that comes
constexpr milliseconds echo_limit{3000};
constexpr seconds download_silence{5};

bool ends_with_prompt(const std::string& text) {
  return text == prompt || text.ends_with(std::string("\n") + prompt);
}

std::string last_line(const std::string& text) {
  const size_t last = text.find_last_not_of("\r\n \b");
  if (last == std::string::npos) {
    return {};
  }
  const size_t begin = text.find_last_of("\r\n", last);
  const size_t first = begin == std::string::npos ? 0 : begin + 1;
  return text.substr(first, last + 1 - first);
}

// A boot loader counts down on one line and stops at the first key.
bool counts_down(const std::string& text) {
  return last_line(text).find("autoboot") != std::string::npos;
}

// What the probe brings back from somebody who waits for a line: the blank, or what was left of it where it
// ended a key of several bytes or met a full line.
bool is_echo(const std::string& text) {
  return !text.empty() && text.size() < 1100 && (text[0] == ' ' || text[0] == '\b' || text[0] == '\x1b');
}

}  // namespace

shell_session::shell_session(line& line) : line_(line), random_(std::random_device{}()) {}

bool shell_session::receive(milliseconds limit) {
  const std::string data = line_.read(std::max(limit, milliseconds(0)));
  received_ += data;
  if (!data.empty() && listener) {
    listener(data);
  }
  return !data.empty();
}

bool shell_session::listen(milliseconds limit) {
  return receive(limit);
}

bool shell_session::finished(milliseconds limit) {
  if (!at_prompt()) {
    receive(limit);
  }
  return at_prompt() && !receive(prompt_settle);
}

bool shell_session::at_prompt() const {
  return ends_with_prompt(received_);
}

bool shell_session::question_is_asked() const {
  return received_.ends_with(question);
}

bool shell_session::restarted() const {
  return received_.find(start_notice) != std::string::npos;
}

void shell_session::no_prompt(const std::string& waited_for, milliseconds limit) const {
  const std::string shown = one_line(last_line(received_));
  throw device_failure(
      status_no_prompt,
      fmt::format("{}: {} within {} s; {}", line_.name(), waited_for, limit.count() / 1000,
                  shown.empty()
                      ? "the line is silent: is the device on, the speed right, or a question half answered?"
                      : fmt::format("the last line it shows is '{}'", shown)));
}

// A boot is left alone while it shows that it goes on; so is a command.
void shell_session::listen_until_silent(clock_type::time_point end) {
  milliseconds quiet = settle;
  while (clock_type::now() < end) {
    if (receive(quiet)) {
      quiet = seconds(1);
    } else if (!counts_down(received_)) {
      return;
    }
    if (at_prompt() && !receive(prompt_settle)) {
      return;
    }
  }
}

void shell_session::find_prompt(milliseconds limit, bool after_restart) {
  const auto end = clock_type::now() + limit;
  received_.clear();
  foreign_prompts_ = 0;
  if (after_restart) {
    while (!restarted() || !at_prompt()) {
      if (clock_type::now() >= end) {
        no_prompt("the shell did not start", limit);
      }
      receive(milliseconds(200));
    }
  }
  int silent_probes = 0;
  while (clock_type::now() < end) {
    listen_until_silent(end);
    std::string before;
    received_.swap(before);
    line_.write(probe);
    const bool answered = receive(probe_limit);
    while (answered && clock_type::now() < end && receive(settle)) {
    }
    if (!answered) {
      received_ = before;
      // A command that runs, or a question whose answer was begun: that echoes nothing more, and as its
      // answer may be a yes, Enter is not ours to press.
      ++silent_probes;
      // A download that somebody left behind ends when nothing comes for 3 seconds.
      const auto quiet_end =
          std::min(end, clock_type::now() + (silent_probes == 1 ? seconds(1) : download_silence));
      while (clock_type::now() < quiet_end && !receive(milliseconds(200))) {
      }
      continue;
    }
    if (is_echo(received_) && take_over(end)) {
      return;
    }
    if (foreign_prompts_ >= 3) {
      throw device_failure(status_no_prompt, fmt::format("{}: this is not the shell; it shows '{}'",
                                                         line_.name(), one_line(last_line(received_))));
    }
  }
  no_prompt("no prompt of the shell", limit);
}

// Somebody waits for a line. Ctrl-C drops what the line editor has; a question does not hear it, and what it
// was sent so far is no yes, so Enter ends it. Result: whether the prompt is there, and nothing else can
// come.
bool shell_session::take_over(clock_type::time_point end) {
  const bool may_be_question = received_ == " ";
  received_.clear();
  line_.write(ctrl_c);
  const auto patience = std::min(end, clock_type::now() + probe_limit);
  while (!at_prompt() && clock_type::now() < patience) {
    receive(milliseconds(100));
  }
  if (!at_prompt() && received_.empty() && may_be_question) {
    line_.write(enter);
    const auto more = std::min(end, clock_type::now() + probe_limit);
    while (!at_prompt() && clock_type::now() < more) {
      receive(milliseconds(100));
    }
  }
  if (at_prompt()) {
    return synchronise();
  }
  foreign_prompts_ += received_.empty() ? 0 : 1;
  return false;
}

// Text that nobody else types comes back, and then the prompt: nothing that was asked for before is still on
// its way. The line is dropped again, so it does not reach the history.
bool shell_session::synchronise() {
  std::string mark = ";";
  for (int i = 0; i < 6; ++i) {
    mark.push_back(static_cast<char>('a' + random_() % 26));
  }
  received_.clear();
  line_.write(mark);
  if (!echo_comes(mark, probe_limit)) {
    return false;
  }
  received_.clear();
  line_.write(ctrl_c);
  const auto end = clock_type::now() + probe_limit;
  while (!at_prompt() && clock_type::now() < end) {
    receive(milliseconds(100));
  }
  const bool there = at_prompt();
  if (there) {
    received_.clear();
  }
  return there;
}

bool shell_session::echo_comes(const std::string& text, milliseconds limit) {
  const auto end = clock_type::now() + limit;
  while (received_.find(text) == std::string::npos) {
    const auto left = std::chrono::ceil<milliseconds>(end - clock_type::now());
    if (left.count() <= 0) {
      return false;
    }
    receive(left);
  }
  return true;
}

void shell_session::start(const std::string& command) {
  if (command.size() > longest_command ||
      !std::all_of(command.begin(), command.end(), [](char c) { return c >= ' ' && c <= '~'; })) {
    throw device_failure(status_failed,
                         fmt::format("'{}': a command is one line of at most {} printable characters",
                                     one_line(command), longest_command));
  }
  constexpr int tries = 3;
  for (int i = 1;; ++i) {
    received_.clear();
    line_.write(command);
    if (echo_comes(command, echo_limit)) {
      break;
    }
    if (i == tries) {
      const std::string shown = one_line(last_line(received_));
      recover(seconds(5));
      throw device_failure(status_no_prompt,
                           fmt::format("{}: '{}' was typed and came back as '{}'; nothing was run",
                                       line_.name(), command, shown));
    }
    find_prompt(seconds(10));
  }
  received_.clear();
  command_ = command;
  started_ = clock_type::now();
  line_.write(enter);
}

std::string shell_session::shown() const {
  std::string text;
  for (const char c : received_) {
    if (c != '\r') {
      text.push_back(c);
    }
  }
  if (text.starts_with('\n')) {
    text.erase(0, 1);
  }
  return text;
}

bool shell_session::wait_for(const std::string& text, milliseconds limit) {
  const auto end = clock_type::now() + limit;
  for (;;) {
    if (received_.find(text) != std::string::npos) {
      return true;
    }
    if (at_prompt() && !receive(prompt_settle)) {
      return false;
    }
    const auto left = std::chrono::ceil<milliseconds>(end - clock_type::now());
    if (left.count() <= 0) {
      no_prompt(fmt::format("'{}' did not get on", command_), limit);
    }
    receive(std::min(left, milliseconds(500)));
  }
}

answer shell_session::finish(milliseconds limit) {
  const auto end = clock_type::now() + limit;
  bool answered = false;
  for (;;) {
    if (at_prompt() && !receive(prompt_settle)) {
      break;
    }
    if (!answered && question_is_asked()) {
      answered = true;
      line_.write(says_yes ? "y\r" : "n\r");
    }
    const auto left = std::chrono::ceil<milliseconds>(end - clock_type::now());
    if (left.count() <= 0) {
      no_prompt(fmt::format("no prompt after '{}'", command_), limit);
    }
    receive(std::min(left, milliseconds(500)));
  }
  answer result{.command = command_,
                .text = shown(),
                .seconds = std::chrono::duration<double>(clock_type::now() - started_).count()};
  result.text.erase(result.text.rfind(prompt));
  const bool was_restart = restarted();
  received_.clear();
  if (was_restart) {
    throw device_failure(status_restarted,
                         fmt::format("{}: the device restarted during '{}' and is at its prompt again",
                                     line_.name(), command_));
  }
  return result;
}

answer shell_session::run(const std::string& command, milliseconds limit) {
  start(command);
  return finish(limit);
}

void shell_session::interrupt() noexcept {
  line_.shield(true);
  try {
    line_.write(ctrl_c);
  } catch (const std::exception&) {
    // Whoever recovers the line finds out.
  }
  line_.shield(false);
}

bool shell_session::recover(milliseconds limit) noexcept {
  line_.shield(true);
  bool there = false;
  try {
    find_prompt(limit);
    there = true;
  } catch (const std::exception&) {
    there = false;
  }
  line_.shield(false);
  return there;
}
