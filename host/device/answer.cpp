// The texts are the shell's own.
#include "device/answer.h"

#include <algorithm>

std::vector<std::string> text_lines(const std::string& text) {
  std::vector<std::string> lines;
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = std::min(text.find('\n', begin), text.size());
    lines.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return lines;
}

answer_kind answer_kind_of(const answer& answer) {
  bool failed = false;
  for (const std::string& line : text_lines(answer.text)) {
    if (line == "ERROR: Unknown Command" || line == "ERROR: Ambiguous Command") {
      return answer_kind::unknown_command;
    }
    if (line == "<aborted>") {
      return answer_kind::aborted;
    }
    failed = failed || line.starts_with("ERROR: ") || line == "Done: FAILURE";
  }
  return failed ? answer_kind::failed : answer_kind::good;
}

const char* answer_kind_name(answer_kind kind) {
  switch (kind) {
    case answer_kind::good:
      return "success";
    case answer_kind::failed:
      return "failure";
    case answer_kind::aborted:
      return "aborted";
    case answer_kind::unknown_command:
      return "unknown_command";
    case answer_kind::restarting:
      return "restarting";
  }
  return "failure";
}

std::vector<std::string> answer_remarks(const std::string& text) {
  std::vector<std::string> remarks;
  for (const std::string& line : text_lines(text)) {
    const bool is_remark = line.starts_with("ERROR: ") || line.starts_with("NOTE: ");
    if (is_remark && (remarks.empty() || remarks.back() != line)) {
      remarks.push_back(line);
    }
  }
  return remarks;
}

std::string one_line(const std::string& text) {
  constexpr size_t longest = 120;
  std::string shown;
  for (const char c : text.substr(0, longest)) {
    shown.push_back(c >= ' ' && c <= '~' ? c : '?');
  }
  return shown;
}
