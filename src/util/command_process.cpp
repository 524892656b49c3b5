// Runs /bin/sh -c with posix_spawn(), which holds back all signals until those of the child are in order.
#include "util/command_process.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace {

constexpr const char* shell_path = "/bin/sh";

// The two records that posix_spawn() takes, and their release.
class spawn_plan {
 public:
  explicit spawn_plan(const command_setup& setup) {
    posix_spawn_file_actions_init(&actions_);
    posix_spawnattr_init(&attributes_);
    if (setup.input >= 0) {
      error_ = posix_spawn_file_actions_adddup2(&actions_, setup.input, STDIN_FILENO);
    }
    if (setup.output >= 0 && error_ == 0) {
      error_ = posix_spawn_file_actions_adddup2(&actions_, setup.output, STDOUT_FILENO);
    }
    // A tool whose reader has gone must end, also when the shell itself wants to survive that.
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes_, &defaults);
    const int group = setup.own_group ? POSIX_SPAWN_SETPGROUP : 0;  // the group's id is the process id
    posix_spawnattr_setflags(&attributes_, static_cast<short>(POSIX_SPAWN_SETSIGDEF | group));
  }
  spawn_plan(const spawn_plan&) = delete;
  spawn_plan& operator=(const spawn_plan&) = delete;
  ~spawn_plan() {
    posix_spawnattr_destroy(&attributes_);
    posix_spawn_file_actions_destroy(&actions_);
  }

  const posix_spawn_file_actions_t* actions() const { return &actions_; }
  const posix_spawnattr_t* attributes() const { return &attributes_; }

  // 0, or why the tool would read from the console, or write to it, in place of its pipe: without memory.
  int error() const { return error_; }

 private:
  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attributes_;
  int error_ = 0;
};

}  // namespace

pid_t command_start(const char* line, const command_setup& setup) {
  const spawn_plan plan(setup);
  const char* const words[] = {"sh", "-c", line, nullptr};
  pid_t process = -1;
  int error = plan.error();
  if (error == 0) {
    error = posix_spawn(&process, shell_path, plan.actions(), plan.attributes(),
                        const_cast<char* const*>(words), environ);
  }
  if (error != 0) {
    errno = error;
    return -1;
  }
  return process;
}

int command_wait(pid_t process) {
  int status = 0;
  pid_t waited;
  do {
    waited = waitpid(process, &status, 0);
  } while (waited == -1 && errno == EINTR);
  return waited == -1 ? -1 : status;
}
