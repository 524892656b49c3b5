// Paths: /proc/PID/fd, /proc/PID/comm, /var/lock/LCK..NAME. Requests: TIOCGEXCL, TIOCEXCL.
#include "device/port_user.h"

#include <fmt/format.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;

constexpr const char* someone = "another process";

std::string process_name(long pid) {
  std::ifstream file(fmt::format("/proc/{}/comm", pid));
  std::string name;
  std::getline(file, name);
  return fmt::format("{} (PID {})", name.empty() ? "a process" : name, pid);
}

bool has_open(const fs::path& process, dev_t device) {
  std::error_code error;
  for (fs::directory_iterator entry(process / "fd", error), end; !error && entry != end;
       entry.increment(error)) {
    struct stat status;
    if (stat(entry->path().c_str(), &status) == 0 && S_ISCHR(status.st_mode) && status.st_rdev == device) {
      return true;
    }
  }
  return false;
}

// Result: the first other process that has the device open, or an empty text. Processes of other people
// cannot be looked into without privilege.
std::string holder(dev_t device) {
  std::error_code error;
  for (fs::directory_iterator entry("/proc", error), end; !error && entry != end; entry.increment(error)) {
    const std::string name = entry->path().filename();
    if (!std::all_of(name.begin(), name.end(), [](char c) { return c >= '0' && c <= '9'; })) {
      continue;
    }
    const long pid = std::stol(name);
    if (pid != getpid() && has_open(entry->path(), device)) {
      return process_name(pid);
    }
  }
  return {};
}

// The lock files of older programs: a process number in ten columns.
std::string lock_file_owner(const std::string& path) {
  std::ifstream file("/var/lock/LCK.." + fs::path(path).filename().string());
  long pid = 0;
  if (!(file >> pid) || pid <= 0 || pid == getpid() ||
      (kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH)) {
    return {};
  }
  return process_name(pid);
}

}  // namespace

std::string port_user_keep_out(int fd, const std::string& path, bool alone) {
  struct stat status;
  if (fstat(fd, &status) != 0) {
    return {};
  }
  if (std::string owner = lock_file_owner(path); !owner.empty()) {
    return owner;
  }
  std::string other = holder(status.st_rdev);
  int exclusive = 0;
  const bool is_locked = flock(fd, LOCK_EX | LOCK_NB) != 0;
  const bool is_exclusive = ioctl(fd, TIOCGEXCL, &exclusive) == 0 && exclusive != 0;
  if (is_locked || is_exclusive) {
    return other.empty() ? someone : other;
  }
  if (alone && !other.empty()) {
    return other;
  }
  ioctl(fd, TIOCEXCL);
  return {};
}
