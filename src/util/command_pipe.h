// A tool that is read or fed while it runs, through a pipe to its standard output or input.
#pragma once

#include <sys/types.h>

#include <cstdio>

class command_pipe {
 public:
  /// In which process group the tool runs. In the shell's, the terminal's Ctrl-C reaches it; in its own,
  /// end() reaches all processes of its command line.
  enum class group { of_shell, its_own };

  /// Starts `command` through /bin/sh; `mode` is "r" to read its output or "w" to feed its input. No other
  /// tool inherits the stream, which would hold this one's pipe open.
  command_pipe(const char* command, const char* mode, group place = group::of_shell);
  command_pipe(const command_pipe&) = delete;
  command_pipe& operator=(const command_pipe&) = delete;
  ~command_pipe();

  /// False when the command could not be started; errno tells why.
  explicit operator bool() const { return stream_ != nullptr; }
  FILE* stream() const { return stream_; }
  int fd() const { return fileno(stream_); }

  /// Closes the stream and waits for the command. Result: its wait status, -1 on error.
  int close();

  /// Closes the stream and ends a command that runs in a group of its own: it is asked to (SIGTERM), and not
  /// asked any more after a second (SIGKILL). Result: as above.
  int end();

 private:
  FILE* stream_ = nullptr;
  pid_t process_ = -1;
};
