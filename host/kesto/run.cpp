// kesto run: commands at the prompt of a device.
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>

#include "device/cancel.h"
#include "kesto/device_options.h"
#include "kesto/report.h"
#include "kesto/subcommand.h"

namespace {

using nlohmann::ordered_json;

constexpr milliseconds reset_limit{3000};

struct script_line {
  std::string command;
  std::string place;  // "FILE:LINE", empty for a command of the command line
};

struct run_options : device_options {
  std::vector<std::string> commands;
  std::string script;
  bool yes = false;
};

struct run_result {
  std::vector<std::pair<answer, answer_kind>> answers;
  int status = status_success;
  std::string message;
};

std::string trimmed(const std::string& text) {
  const size_t begin = text.find_first_not_of(" \t\r");
  return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1);
}

// Empty lines and those that are nothing but a comment to the shell are left out.
std::vector<script_line> read_script(const std::string& path) {
  std::ifstream file(path);
  if (!file) {
    throw device_failure(status_failed, fmt::format("{}: open error ({})", path, strerror(errno)));
  }
  std::vector<script_line> lines;
  std::string text;
  for (unsigned number = 1; std::getline(file, text); ++number) {
    const std::string command = trimmed(text);
    if (!command.empty() && command[0] != '#' && command[0] != ';') {
      lines.push_back({command, fmt::format("{}:{}", path, number)});
    }
  }
  if (file.bad() || !file.eof()) {
    throw device_failure(status_failed, fmt::format("{}: read error ({})", path, strerror(errno)));
  }
  if (lines.empty()) {
    throw device_failure(status_failed, fmt::format("{}: holds no command", path));
  }
  return lines;
}

// As the shell takes it: any leading part of the word, in any case.
bool is_reset(const std::string& command) {
  std::string word = command.substr(0, command.find_first_of(" \t"));
  std::transform(word.begin(), word.end(), word.begin(), [](unsigned char c) { return tolower(c); });
  return std::string("reset").starts_with(word) || std::string("reboot").starts_with(word);
}

// The prompt may come once more before the device goes down; what comes up later is another matter.
std::pair<answer, answer_kind> run_reset(shell_session& shell, const std::string& command) {
  shell.start(command);
  const auto begin = clock_type::now();
  try {
    shell.wait_for("Reset Failed", reset_limit);
  } catch (const device_failure& failure) {
    if (failure.status() != status_no_prompt) {
      throw;
    }
  }
  answer result{.command = command,
                .text = shell.shown(),
                .seconds = std::chrono::duration<double>(clock_type::now() - begin).count()};
  const bool failed = result.text.find("Reset Failed") != std::string::npos;
  if (const size_t prompt = result.text.rfind("CLI> "); prompt != std::string::npos) {
    result.text.erase(prompt);
  }
  return {result, failed ? answer_kind::failed : answer_kind::restarting};
}

std::string complaint(const script_line& line, const answer& result, answer_kind kind) {
  const std::string place = line.place.empty() ? "" : line.place + ": ";
  if (kind == answer_kind::unknown_command) {
    return fmt::format("{}the shell does not know '{}'", place, line.command);
  }
  if (kind == answer_kind::aborted) {
    return fmt::format("{}'{}' asks for a yes, and --yes was not given", place, line.command);
  }
  std::string why = "Done: FAILURE";
  for (const std::string& remark : answer_remarks(result.text)) {
    if (remark.starts_with("ERROR: ")) {
      why = remark;
      break;
    }
  }
  return fmt::format("{}'{}' failed: {}", place, line.command, one_line(why));
}

void run_lines(shell_session& shell, const run_options& options, const std::vector<script_line>& lines,
               run_result& result) {
  shell.find_prompt(options.limit(), options.after_restart);
  for (const script_line& line : lines) {
    if (!result.answers.empty() && result.answers.back().second == answer_kind::restarting) {
      shell.find_prompt(options.limit(), !shell.restarted());
    }
    const auto [given, kind] = is_reset(line.command) ? run_reset(shell, line.command) : [&] {
      answer plain = shell.run(line.command, options.limit());
      const answer_kind plain_kind = answer_kind_of(plain);
      return std::pair(plain, plain_kind);
    }();
    result.answers.emplace_back(given, kind);
    if (!options.json) {
      fwrite(given.text.data(), 1, given.text.size(), stdout);
      fflush(stdout);
    }
    if (kind != answer_kind::good && kind != answer_kind::restarting) {
      result.status = status_device_failed;
      result.message = complaint(line, given, kind);
      return;
    }
  }
}

void print_json(const run_options& options, const run_result& result) {
  ordered_json record = {{"format", 1},
                         {"port", options.ports[0]},
                         {"result", device_status_name(result.status)},
                         {"status", result.status},
                         {"message", result.message},
                         {"commands", ordered_json::array()}};
  for (const auto& [given, kind] : result.answers) {
    record["commands"].push_back({{"command", given.command},
                                  {"result", answer_kind_name(kind)},
                                  {"seconds", given.seconds},
                                  {"text", given.text}});
  }
  printf("%s\n", record.dump(2, ' ', false, ordered_json::error_handler_t::replace).c_str());
}

int run_commands(const run_options& options) {
  if (options.commands.empty() == options.script.empty()) {
    return report_usage("run", "%s", options.script.empty() ? "no command" : "commands beside a script");
  }
  run_result result;
  try {
    std::vector<script_line> lines;
    for (const std::string& command : options.commands) {
      lines.push_back({trimmed(command), {}});
    }
    if (!options.script.empty()) {
      lines = read_script(options.script);
    }
    cancel_take_signals();
    device_connection connection(options.ports[0], options);
    connection.shell.says_yes = options.yes;
    try {
      run_lines(connection.shell, options, lines, result);
    } catch (const device_failure& failure) {
      if (failure.status() == status_interrupted) {
        connection.shell.interrupt();
      }
      throw device_settle(connection, failure);
    }
  } catch (const device_failure& failure) {
    result.status = failure.status();
    result.message = failure.what();
  }
  if (options.json) {
    print_json(options, result);
  }
  if (result.status != status_success) {
    report_error("%s", result.message.c_str());
  }
  return result.status;
}

std::function<int()> declare_run(CLI::App& line) {
  const auto options = std::make_shared<run_options>();
  device_options_declare(line, *options, false);
  line.add_option("--script", options->script, "take the commands from FILE, one on a line")
      ->type_name("FILE")
      ->group("Commands");
  line.add_flag("--yes", options->yes, "answer yes where the shell asks before it destroys")
      ->group("Commands");
  line.add_option("COMMAND", options->commands);
  return [options] { return run_commands(*options); };
}

}  // namespace

const subcommand device_run = {
    .name = "run",
    .arguments = "--port PORT (COMMAND... | --script FILE) [OPTIONS]",
    .purpose = "Run commands at the prompt of a device",
    .text =
        "Finds the prompt in whatever state the line is, types each COMMAND (a line of the shell, so in quotes when it\n"
        "has blanks), and prints what came back. Stops at the first command that fails, that the shell does not know,\n"
        "or that is not done within the limit. In a script, empty lines and lines that begin with # or ; are left "
        "out.\n",
    .declare = declare_run,
};
