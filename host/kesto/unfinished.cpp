// A list that the signal handler can walk: it changes only while the signals are held back.
#include "kesto/unfinished.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>

namespace {

constexpr int ending_signals[] = {SIGHUP, SIGINT, SIGTERM};

unfinished_path* volatile newest = nullptr;

void remove_path(const char* path) {
  if (unlink(path) != 0) {
    rmdir(path);
  }
}

}  // namespace

signals_held_back::signals_held_back() {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : ending_signals) {
    sigaddset(&set, number);
  }
  pthread_sigmask(SIG_BLOCK, &set, &before_);
}

signals_held_back::~signals_held_back() {
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

void unfinished_path::remove_all(int number) {
  for (const unfinished_path* path = newest; path != nullptr; path = path->next_) {
    remove_path(path->path_.c_str());
  }
  raise(number);  // again, now with the default action
}

unfinished_path::unfinished_path(std::string path) : path_(std::move(path)), next_(newest) {
  for (const int number : ending_signals) {
    struct sigaction action = {};
    if (sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_DFL) {
      action.sa_handler = remove_all;
      action.sa_flags = static_cast<int>(SA_RESETHAND);
      sigaction(number, &action, nullptr);
    }
  }
  const signals_held_back hold;
  newest = this;
}

unfinished_path::~unfinished_path() {
  if (!finished_) {
    remove_path(path_.c_str());
    finish();
  }
}

void unfinished_path::finish() {
  const signals_held_back hold;
  finished_ = true;
  if (newest == this) {
    newest = next_;
    return;
  }
  for (unfinished_path* path = newest; path != nullptr; path = path->next_) {
    if (path->next_ == this) {
      path->next_ = next_;
      return;
    }
  }
}
