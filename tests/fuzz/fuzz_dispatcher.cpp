// Lines as the prompt hands them on, with the commands behind them, on a machine that has nothing: no file,
// no device and no tool opens or starts, waits take no time, and Ctrl-C is pressed as soon as a command
// listens to it. Which command answers is compared with a look-up as one would write it first. Bytes from 128
// on stand for the words of the command tree, since random bytes hardly ever make one.
#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <iterator>
#include <utility>
#include <vector>

#include "cli/command_tree.h"
#include "cli/dispatch.h"
#include "cli/line_editor.h"
#include "commands/affirm.h"
#include "fuzz_screen.h"
#include "net/interface.h"
#include "tty/port.h"
#include "util/log.h"

namespace {

void expect(bool holds) {
  if (!holds) {
    abort();
  }
}

// True while the shell runs; the fuzzer itself has threads and files of its own.
thread_local bool shell_runs = false;

// The words from the top of the tree to each of its entries, with a blank behind them.
void collect_paths(const command_record* table, int32_t count, const std::string& before,
                   std::vector<std::string>& paths) {
  for (const command_record* entry = table; entry != table + count; ++entry) {
    const std::string path = before + entry->name + " ";
    paths.push_back(path);
    collect_paths(entry->subtable, entry->subtable_count, path, paths);
  }
}

std::vector<std::string> paths_of_the_tree() {
  std::vector<std::string> paths;
  collect_paths(commands_top, commands_top_count, "", paths);
  expect(paths.size() <= 128);  // as many as there are bytes for
  return paths;
}

std::string expanded(const uint8_t* data, size_t size) {
  static const std::vector<std::string> paths = paths_of_the_tree();
  std::string text;
  for (size_t i = 0; i < size; ++i) {
    if (data[i] >= 128 && data[i] - 128U < paths.size()) {
      text += paths[data[i] - 128U];
    } else {
      text += static_cast<char>(data[i]);
    }
  }
  return text;
}

std::vector<std::string> words_of_line(const std::string& line) {
  std::vector<std::string> words;
  std::string word;
  for (const char character : line + " ") {
    if (character != ' ' && character != '\t') {
      word += character;
    } else if (!word.empty()) {
      if (word[0] == '#' || word[0] == ';' || words.size() == 20) {
        break;
      }
      words.push_back(std::exchange(word, ""));
    }
  }
  return words;
}

std::string lower(std::string text) {
  for (char& character : text) {
    character = character >= 'A' && character <= 'Z' ? static_cast<char>(character + 32) : character;
  }
  return text;
}

// How the answer to a line begins: an error, or the trace of the command that its words reach.
std::string expected_beginning(const std::vector<std::string>& words) {
  const command_record* table = commands_top;
  int32_t count = commands_top_count;
  std::string command = "cmd";
  for (const std::string& typed : words) {
    const std::string word = lower(typed);
    const command_record* whole = nullptr;
    std::vector<const command_record*> begun;
    for (const command_record* entry = table; entry != table + count; ++entry) {
      if (entry->handler == cmd_not_yet_implemented) {
        continue;
      }
      const std::string name = entry->name;
      const std::string alias = entry->alias;
      if (whole == nullptr && (name == word || alias == word)) {
        whole = entry;
      }
      if (name.starts_with(word) || alias.starts_with(word)) {
        begun.push_back(entry);
      }
    }
    if (whole == nullptr && begun.size() != 1) {
      return begun.empty() ? "ERROR: Unknown Command\n" : "ERROR: Ambiguous Command\n";
    }
    const command_record* entry = whole != nullptr ? whole : begun[0];
    command += std::string("_") + entry->name;
    if (entry->handler != nullptr) {
      return command == "cmd_quit" ? "" : "TRACE: " + command + ":\n";
    }
    table = entry->subtable;
    count = entry->subtable_count;
  }
  return words.empty() ? "" : "ERROR: Incomplete command\n";
}

void run_line(const std::string& line) {
  static char buffer[cli_line_length + 1];
  snprintf(buffer, sizeof buffer, "%s", line.c_str());
  const std::vector<std::string> words = words_of_line(buffer);
  log_level = level_trace;
  shown.clear();
  shell_runs = true;
  cli_execute_line(buffer);
  shell_runs = false;
  const std::string expected = expected_beginning(words);
  expect(shown.starts_with(expected) && (!expected.empty() || shown.empty()));
  expect(!expected.starts_with("ERROR") || shown == expected);
  expect(log_state == 1);
  // What nobody took is still there, word for word, in the order in which it was typed.
  expect(ntokens >= 0 && static_cast<size_t>(ntokens) <= words.size());
  for (int32_t i = 0; i < ntokens; ++i) {
    expect(words[words.size() - static_cast<size_t>(ntokens - i)] == tokens[i]);
  }
}

int nothing_there(int result, int error) {
  errno = error;
  return result;
}

}  // namespace

// What the shell can reach the machine by; CMakeLists.txt puts these in their places.
extern "C" {

int __real_open64(const char* path, int flags, mode_t mode);
int __wrap_open64(const char* path, int flags, mode_t mode) {
  return shell_runs ? nothing_there(-1, ENOENT) : __real_open64(path, flags, mode);
}

int __real_close(int fd);
int __wrap_close(int fd) {
  return shell_runs && fd <= STDERR_FILENO ? 0 : __real_close(fd);
}

FILE* __real_fopen64(const char* path, const char* mode);
FILE* __wrap_fopen64(const char* path, const char* mode) {
  if (shell_runs) {
    errno = ENOENT;
    return nullptr;
  }
  return __real_fopen64(path, mode);
}

int __real_stat64(const char* path, struct stat64* status);
int __wrap_stat64(const char* path, struct stat64* status) {
  return shell_runs ? nothing_there(-1, ENOENT) : __real_stat64(path, status);
}

int __real_access(const char* path, int mode);
int __wrap_access(const char* path, int mode) {
  return shell_runs ? nothing_there(-1, ENOENT) : __real_access(path, mode);
}

int __real_unlink(const char* path);
int __wrap_unlink(const char* path) {
  return shell_runs ? nothing_there(-1, ENOENT) : __real_unlink(path);
}

int __real_socket(int domain, int type, int protocol);
int __wrap_socket(int domain, int type, int protocol) {
  return shell_runs ? nothing_there(-1, EAFNOSUPPORT) : __real_socket(domain, type, protocol);
}

int __real_posix_spawn(pid_t* process, const char* path, const posix_spawn_file_actions_t* actions,
                       const posix_spawnattr_t* attributes, char* const* words, char* const* environment);
int __wrap_posix_spawn(pid_t* process, const char* path, const posix_spawn_file_actions_t* actions,
                       const posix_spawnattr_t* attributes, char* const* words, char* const* environment) {
  return shell_runs ? ENOENT : __real_posix_spawn(process, path, actions, attributes, words, environment);
}

pid_t __real_fork();
pid_t __wrap_fork() {
  return shell_runs ? nothing_there(-1, EAGAIN) : __real_fork();
}

unsigned __real_sleep(unsigned seconds);
unsigned __wrap_sleep(unsigned seconds) {
  return shell_runs ? 0 : __real_sleep(seconds);
}

int __real_sigaction(int signal, const struct sigaction* action, struct sigaction* previous);
int __wrap_sigaction(int signal, const struct sigaction* action, struct sigaction* previous) {
  if (!shell_runs) {
    return __real_sigaction(signal, action, previous);
  }
  static struct sigaction of_interrupt = {};
  if (previous != nullptr) {
    *previous = of_interrupt;
  }
  if (action != nullptr && signal == SIGINT) {
    of_interrupt = *action;
    if (action->sa_handler != SIG_DFL && action->sa_handler != SIG_IGN) {
      action->sa_handler(signal);
    }
  }
  return 0;
}

// Goes around `shown`, to where the fuzzer writes.
void __real_perror(const char* text);
void __wrap_perror(const char* text) {
  if (!shell_runs) {
    __real_perror(text);
  }
}

}  // extern "C"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  show_on_screen();
  affirm_on = false;
  tty_cli = {};
  tty_cli.fd = STDIN_FILENO;
  std::fill(std::begin(net_if_started), std::end(net_if_started), false);
  const std::string text = expanded(data, size);
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = std::min(text.find('\n', begin), text.size());
    run_line(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return 0;
}
