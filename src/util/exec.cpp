// Two runners start a command and wait for it; the two that capture output do that in a fork() that reads.
#include "util/exec.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "util/command_pipe.h"
#include "util/command_process.h"
#include "util/log.h"
#include "util/signals.h"

namespace {

bool exited_cleanly(int status) {
  return status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

int run(const char* command) {
  log_printf(level_verbose, "system(%s)\n", command);
  const pid_t process = command_start(command);
  if (process != -1) {
    return command_wait(process);
  }
  // Without memory nothing was started; else there is no shell to run, which its status tells, too.
  constexpr int shell_is_missing = 127 << 8;
  return errno == ENOMEM || errno == EAGAIN ? -1 : shell_is_missing;
}

constexpr int child_failure = -1;

// Reads the output of `line` to its end in the child, handing each piece of at most 255 characters to
// `show`. Result: false, after an error, when the tool could not be started or did not exit with status 0.
template <typename Show>
bool read_tool_output(const char* caller, const char* line, Show show) {
  command_pipe tool(line, "r");
  if (!tool) {
    log_printf(level_error, "%s: popen(%s) error(%s)\n", caller, line, strerror(errno));
    return false;
  }
  char output[256];
  while (fgets(output, sizeof output, tool.stream()) != nullptr) {
    show(output);
  }
  const int status = tool.close();
  if (status == -1 || !WIFEXITED(status)) {
    log_printf(level_error, "Child unclean exit\n");
    return false;
  }
  if (WEXITSTATUS(status) != 0) {
    log_printf(level_error, "Child exit status=%i\n", WEXITSTATUS(status));
    return false;
  }
  return true;
}

enum class capture_result { success, failure, signalled };

// Waits for the child of a capturing runner and reports how it ended.
capture_result wait_for_reader(const char* caller, const char* command, pid_t child) {
  const int status = command_wait(child);
  if (status == -1) {
    log_printf(level_error, "%s(%s): error waiting for child\n", caller, command);
    return capture_result::failure;
  }
  if (WIFSIGNALED(status)) {
    log_printf(level_plain, "\n");
    log_printf(level_error, "Terminated by signal\n");
    return capture_result::signalled;
  }
  if (WEXITSTATUS(status) != 0) {
    log_printf(level_error, "Exit status=%i\n", WEXITSTATUS(status));
    return capture_result::failure;
  }
  return capture_result::success;
}

// Forks a reader that Ctrl-C ends from its first moment: what is pressed before the action is the default
// waits.
pid_t fork_reader() {
  const sigint_deferred until_set;
  const pid_t child = fork();
  if (child == 0) {
    sigint_install_default();
  }
  return child;
}

// The common frame of the capturing runners. `body` gets the line to run and answers the child's exit
// status; it runs in a child of its own, so that Ctrl-C ends the reading and the tool but not the shell.
template <typename Body>
capture_result run_captured(const char* caller, const char* command, Body body) {
  long_command_line line;
  if (!compose_command(line, "%s 2>&1", command)) {
    return capture_result::failure;
  }
  log_printf(level_verbose, "%s: fork popen(%s)\n", caller, line.text());
  const pid_t child = fork_reader();
  if (child == -1) {
    log_printf(level_error, "%s(%s): fork failed\n", caller, command);
    return capture_result::failure;
  }
  if (child == 0) {
    _exit(body(line.text()));
  }
  return wait_for_reader(caller, command, child);
}

template <typename Line>
__attribute__((format(printf, 2, 0))) bool compose(Line& line, const char* format, va_list args) {
  if (line.vformat(format, args)) {
    return true;
  }
  log_printf(level_error, "Command line too long, limit is %i characters\n",
             static_cast<int>(Line::size() - 1));
  return false;
}

}  // namespace

bool compose_command(command_line& line, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const bool whole = compose(line, format, args);
  va_end(args);
  return whole;
}

bool compose_command(long_command_line& line, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const bool whole = compose(line, format, args);
  va_end(args);
  return whole;
}

int exec_system_cmd(const char* command) {
  log_printf(level_trace, "%s:\n", __func__);
  const int status = run(command);
  if (exited_cleanly(status)) {
    return 0;
  }
  if (status == -1) {
    log_printf(level_error, "system(%s) returned -1\n", command);
  } else {
    log_printf(level_error, "system(%s) sys_rc=%i exitstatus=%i\n", command, status, WEXITSTATUS(status));
  }
  return 1;
}

int exec_system_cmd_quiet(const char* command) {
  log_printf(level_trace, "%s:\n", __func__);
  return exited_cleanly(run(command)) ? 0 : 1;
}

bool exec_system_cmd_check_stderr(const char* command, bool print) {
  log_printf(level_trace, "%s:\n", __func__);
  const capture_result result = run_captured(__func__, command, [print](const char* line) {
    int lines = 0;
    const auto show = [print, &lines](const char* output) {
      ++lines;
      if (print) {
        log_printf(level_note, "%s", output);
      }
    };
    return read_tool_output("exec_system_cmd_check_stderr", line, show) ? lines : child_failure;
  });
  return result == capture_result::success;
}

int exec_system_cmd_print_with_match(const char* command, const char* print, const char* dont_print,
                                     bool notes) {
  log_printf(level_trace, "%s: print='%s' dont_print='%s' notes=%s\n", __func__,
             print != nullptr ? print : "", dont_print != nullptr ? dont_print : "",
             notes ? "true" : "false");
  const capture_result result = run_captured(__func__, command, [=](const char* line) {
    const auto show = [=](const char* output) {
      if (print != nullptr && strstr(output, print) != nullptr) {
        log_printf(notes ? level_note : level_plain, "%s", output);
      } else if (dont_print == nullptr || strstr(output, dont_print) == nullptr) {
        log_printf(level_plain, "%s", output);
      }
    };
    return read_tool_output("exec_system_cmd_print_with_match", line, show) ? 0 : child_failure;
  });
  switch (result) {
    case capture_result::success:
      return 0;
    case capture_result::signalled:
      return -1;
    default:
      return 1;
  }
}
