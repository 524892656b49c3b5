// A session with the shell at the end of a line: brings it to its prompt, types commands, collects what they
// say.
#pragma once

#include <functional>
#include <random>
#include <string>

#include "device/answer.h"
#include "device/line.h"

using seconds = std::chrono::seconds;

class shell_session {
 public:
  explicit shell_session(line& line);

  /// Called with each piece that comes from the device, as it comes.
  std::function<void(std::string_view)> listener;
  /// Whether the question before a destructive command is answered with yes.
  bool says_yes = false;

  /// Brings the line to the prompt, in whatever state it is: a half-typed line is dropped, a question
  /// answered with no, a command that runs is waited for, as is a boot. Nothing is typed into a boot log that
  /// scrolls by. With `after_restart` nothing at all is typed until the shell has started anew. Throws
  /// status_no_prompt.
  void find_prompt(milliseconds limit, bool after_restart = false);

  /// Types a command and waits for the next prompt. The echo is compared before Enter, so that a line that
  /// drops bytes runs nothing. Throws status_no_prompt, status_restarted.
  answer run(const std::string& command, milliseconds limit);

  /// The two halves of run(), for commands that do not simply end: types a command, Enter included; waits
  /// until what came since ends in the prompt.
  void start(const std::string& command);
  answer finish(milliseconds limit);
  /// Waits until what came since start() holds `text` or ends in the prompt. Result: whether the text came.
  bool wait_for(const std::string& text, milliseconds limit);
  /// Waits up to `limit` for something to come. Result: whether what came since start() ends in the prompt.
  bool finished(milliseconds limit);
  /// Takes note of what has come by now. Result: whether anything has.
  bool listen(milliseconds limit);
  /// Whether the shell has started anew since start().
  bool restarted() const;
  /// What came since start(), behind the echo, with "\n" as line end.
  std::string shown() const;

  /// Ends the command that runs, as Ctrl-C at a terminal does; what it was doing on the device stays undone.
  /// Throws nothing.
  void interrupt() noexcept;

  /// After a failure or Ctrl-C: tries to get the prompt back within `limit`. Result: whether it is there.
  /// Throws nothing; when the line is gone there is no prompt.
  bool recover(milliseconds limit) noexcept;

 private:
  bool receive(milliseconds limit);
  bool at_prompt() const;
  bool question_is_asked() const;
  void listen_until_silent(clock_type::time_point end);
  bool take_over(clock_type::time_point end);
  bool synchronise();
  bool echo_comes(const std::string& text, milliseconds limit);
  [[noreturn]] void no_prompt(const std::string& waited_for, milliseconds limit) const;

  line& line_;
  std::string received_;  // since the last mark
  std::string command_;
  clock_type::time_point started_;
  std::mt19937 random_;
  int foreign_prompts_ = 0;
};
