// What the shell answered to a command, and what that means.
#pragma once

#include <string>
#include <vector>

enum class answer_kind {
  good,             // the prompt is back and nothing speaks against success
  failed,           // "Done: FAILURE", or an error
  aborted,          // the question was answered with no
  unknown_command,  // nothing was done: the shell knows no such command, or too many
  restarting        // the device went down on its own command
};

struct answer {
  std::string command;
  std::string text;  // between the echo and the next prompt, with "\n" as line end
  double seconds = 0;
};

/// Result: what the text of an answer says.
answer_kind answer_kind_of(const answer& answer);

/// Result: the word that stands for it in JSON.
const char* answer_kind_name(answer_kind kind);

/// Result: the lines of a text, without their ends.
std::vector<std::string> text_lines(const std::string& text);

/// Result: the lines that begin with "ERROR: " or "NOTE: ", without doubles in a row.
std::vector<std::string> answer_remarks(const std::string& text);

/// Result: a text on one line that a terminal takes: what is not printable as "?", at most 120 characters.
std::string one_line(const std::string& text);
