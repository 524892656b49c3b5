// One end of a pipe from pipe2() for the tool, the other as a stream for the shell.
#include "util/command_pipe.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <utility>

#include "util/command_process.h"
#include "util/unique_fd.h"

namespace {

constexpr int grace_steps = 20;
constexpr useconds_t grace_step_us = 50000;

// Gives the process time to end by itself. Result: true when it has ended; its wait status is in `status`.
bool ends_soon(pid_t process, int* status) {
  for (int step = 0; step < grace_steps; ++step) {
    if (waitpid(process, status, WNOHANG) == process) {
      return true;
    }
    usleep(grace_step_us);
  }
  return false;
}

}  // namespace

command_pipe::command_pipe(const char* command, const char* mode, group place) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    return;
  }
  unique_fd own(ends[mode[0] == 'r' ? 0 : 1]);
  const unique_fd tools(ends[mode[0] == 'r' ? 1 : 0]);
  FILE* stream = fdopen(own.get(), mode);
  if (stream == nullptr) {
    return;
  }
  own.release();
  command_setup setup = {.own_group = place == group::its_own};
  (mode[0] == 'r' ? setup.output : setup.input) = tools.get();
  process_ = command_start(command, setup);
  if (process_ == -1) {
    const int error = errno;
    fclose(stream);
    errno = error;
    return;
  }
  stream_ = stream;
}

command_pipe::~command_pipe() {
  if (stream_ != nullptr) {
    close();
  }
}

int command_pipe::close() {
  fclose(std::exchange(stream_, nullptr));
  return command_wait(process_);
}

int command_pipe::end() {
  fclose(std::exchange(stream_, nullptr));
  kill(-process_, SIGTERM);
  int status = 0;
  if (ends_soon(process_, &status)) {
    return status;
  }
  kill(-process_, SIGKILL);
  return command_wait(process_);
}
