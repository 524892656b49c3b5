// What is on its way into the file system and must not stay when the work breaks off.
#pragma once

#include <csignal>
#include <string>

/// Holds back the signals that end the program, while something comes into being and is noted here.
class signals_held_back {
 public:
  signals_held_back();
  signals_held_back(const signals_held_back&) = delete;
  signals_held_back& operator=(const signals_held_back&) = delete;
  ~signals_held_back();

 private:
  sigset_t before_;
};

/// A file or an empty directory that is removed by the destructor, and by SIGHUP, SIGINT and SIGTERM, unless
/// it was finished before. The latest is removed first. For one
/// thread only.
class unfinished_path {
 public:
  explicit unfinished_path(std::string path);
  unfinished_path(const unfinished_path&) = delete;
  unfinished_path& operator=(const unfinished_path&) = delete;
  ~unfinished_path();

  /// From now on it stays.
  void finish();
  const std::string& path() const { return path_; }

 private:
  static void remove_all(int number);

  std::string path_;
  bool finished_ = false;
  unfinished_path* next_;
};
