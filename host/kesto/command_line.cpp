// The command line. CLI11 knows options and operands; what is said about a wrong line is said here, in one
// line.
#include "kesto/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "kesto/report.h"

namespace {

struct declared_command {
  const subcommand* record;
  std::function<int()> run;
};

class line_parser {
 public:
  line_parser(const program& program, int argc, char** argv)
      : program_(program), words_(argv + 1, argv + argc) {
    set_up(root_);
    root_.set_version_flag("--version", program.version)->group("")->disable_flag_override();
    for (const subcommand* command : program.commands) {
      CLI::App& line = app_of(command->name);
      commands_[&line] = {command, command->declare(line)};
    }
  }

  int run() {
    try {
      std::vector<std::string> reversed(words_.rbegin(), words_.rend());
      root_.parse(reversed);
    } catch (const CLI::CallForHelp&) {
      return help();
    } catch (const CLI::CallForVersion&) {
      printf("kesto %s\n", program_.version);
      return exit_success;
    } catch (const CLI::RequiredError&) {
      return refuse_words();
    } catch (const CLI::ArgumentMismatch&) {
      return refuse_value();
    } catch (const CLI::ParseError& error) {
      return report_usage(name(), "%s", error.what());
    }
    if (words_.empty()) {
      return report_usage("", "no command");
    }
    const declared_command* command = chosen();
    if (command == nullptr) {
      return refuse_command();
    }
    return unknown_words().empty() ? command->run() : refuse_words();
  }

 private:
  static void set_up(CLI::App& app) {
    app.set_help_flag("-h,--help")->group("")->disable_flag_override();
    app.require_subcommand(0, 1);  // so that an operand may have the name of a subcommand
    app.allow_extras();
  }

  // Result: where the command with these words is declared. Words that are not there yet are added.
  CLI::App& app_of(const char* name) {
    CLI::App* app = &root_;
    for (const char* word = name; *word != '\0';) {
      const std::string text(word, strcspn(word, " "));
      const std::vector<CLI::App*> there =
          app->get_subcommands([&text](const CLI::App* candidate) { return candidate->get_name() == text; });
      if (there.empty()) {
        app = app->add_subcommand(text);
        set_up(*app);
      } else {
        app = there.front();
      }
      word += text.size() + (word[text.size()] == ' ' ? 1 : 0);
    }
    return *app;
  }

  // Result: as far as the words name commands.
  const CLI::App* leaf() const {
    const CLI::App* app = &root_;
    while (!app->get_subcommands().empty()) {
      app = app->get_subcommands().front();
    }
    return app;
  }

  // Result: the words that the command has no use for. CLI11 counts the "--" in front of operands among them.
  std::vector<std::string> unknown_words() const {
    std::vector<std::string> words = leaf()->remaining();
    std::erase(words, "--");
    return words;
  }

  // Result: null when the words are no command, or others stand between them.
  const declared_command* chosen() const {
    for (const CLI::App* app = &root_; !app->get_subcommands().empty();
         app = app->get_subcommands().front()) {
      if (!app->remaining().empty()) {
        return nullptr;
      }
    }
    const auto found = commands_.find(leaf());
    return found == commands_.end() ? nullptr : &found->second;
  }

  const char* name() const {
    const declared_command* command = chosen();
    return command == nullptr ? "" : command->record->name;
  }

  int refuse_command() const {
    if (words_[0].starts_with('-') || words_.size() == 1 || words_[1].starts_with('-')) {
      return report_usage("", "no command '%s'", words_[0].c_str());
    }
    return report_usage("", "no command '%s %s'", words_[0].c_str(), words_[1].c_str());
  }

  // Says what is wrong with the first word that the command does not know, or that there are too few.
  int refuse_words() const {
    if (chosen() == nullptr) {
      return refuse_command();
    }
    const std::vector<std::string> unknown = unknown_words();
    for (const std::string& word : unknown) {
      if (word.starts_with("--") && word.size() > 2) {
        return report_usage(name(), "option '%s' is not known here", word.c_str());
      }
      if (word.starts_with('-') && word.size() > 1) {
        return report_usage(name(), "option '-%c' is not known here", word[1]);
      }
    }
    if (unknown.empty()) {
      for (const CLI::Option* option : leaf()->get_options()) {
        if (option->get_required() && !option->get_positional() && option->count() == 0) {
          return report_usage(name(), "option '%s' is missing", option->get_name().c_str());
        }
      }
      return report_usage(name(), "too few arguments");
    }
    if (leaf()->get_options([](const CLI::Option* option) { return option->get_positional(); }).empty()) {
      return report_usage(name(), "'%s' belongs to no option", unknown.front().c_str());
    }
    return report_usage(name(), "too many arguments");
  }

  // Says which option has no value, or has one that it does not take.
  int refuse_value() const {
    for (const std::string& word : words_) {
      if (const size_t value = word.find('='); value != std::string::npos && word.starts_with("--")) {
        const CLI::Option* option = leaf()->get_option_no_throw(word.substr(0, value));
        if (option != nullptr && option->get_items_expected_max() == 0) {
          return report_usage(name(), "option '%s' is not known here", word.c_str());
        }
      }
    }
    return report_usage(name(), "option '%s' needs a value", words_.back().c_str());
  }

  int help() const {
    if (const declared_command* command = chosen()) {
      print_help_of(*command->record);
    } else {
      print_help();
    }
    return exit_success;
  }

  void print_help() const {
    printf("NAME\n  kesto - %s\n\nSYNOPSIS\n", program_.purpose);
    int width = 0;
    for (const subcommand* command : program_.commands) {
      printf("  kesto %s %s\n", command->name, command->arguments);
      width = std::max(width, static_cast<int>(strlen(command->name)));
    }
    printf("\nCOMMANDS\n");
    for (const subcommand* command : program_.commands) {
      printf("  %-*s %s\n", width + 1, command->name, command->purpose);
    }
    printf("\n%s", program_.help_end);
  }

  void print_help_of(const subcommand& command) const {
    printf("usage: kesto %s %s\n\n%s.\n%s", command.name, command.arguments, command.purpose, command.text);
    std::string group;
    for (const CLI::Option* option : leaf()->get_options()) {
      if (option->get_description().empty()) {
        continue;
      }
      if (option->get_group() != group) {
        group = option->get_group();
        printf("\n%s:\n", group.c_str());
      }
      print_option(*option);
    }
  }

  static void print_option(const CLI::Option& option) {
    std::string name;
    for (const std::string& letter : option.get_snames()) {
      name += "-" + letter + ", ";
    }
    for (const std::string& word : option.get_lnames()) {
      name += "--" + word;
    }
    if (option.get_positional()) {
      name = option.get_name(true);
    } else if (option.get_items_expected_max() != 0) {
      name += " " + option.get_type_name();
    }
    const std::string& description = option.get_description();
    for (size_t begin = 0; begin <= description.size();) {
      const size_t end = std::min(description.find('\n', begin), description.size());
      printf("  %-24s %s\n", begin == 0 ? name.c_str() : "", description.substr(begin, end - begin).c_str());
      begin = end + 1;
    }
  }

  const program& program_;
  std::vector<std::string> words_;
  CLI::App root_;
  std::map<const CLI::App*, declared_command> commands_;
};

}  // namespace

int command_line_run(const program& program, int argc, char** argv) {
  return line_parser(program, argc, argv).run();
}
