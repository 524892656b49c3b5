// Owner of a stream from popen(): a tool that is read or fed while it runs.
#pragma once

#include <cstdio>
#include <utility>

class command_pipe {
 public:
  /// Starts `command` through /bin/sh; `mode` is "r" to read its output or "w" to feed its input. The stream
  /// is closed on exec, so that no other tool holds this one's pipe open.
  command_pipe(const char* command, const char* mode)
      : stream_(popen(command, mode[0] == 'r' ? "re" : "we")) {}
  command_pipe(const command_pipe&) = delete;
  command_pipe& operator=(const command_pipe&) = delete;
  ~command_pipe() {
    if (stream_ != nullptr) {
      close();
    }
  }

  /// False when the command could not be started; errno tells why.
  explicit operator bool() const { return stream_ != nullptr; }
  FILE* stream() const { return stream_; }
  int fd() const { return fileno(stream_); }

  /// Closes the stream and waits for the command. Result: its wait status, -1 on error.
  int close() { return pclose(std::exchange(stream_, nullptr)); }

 private:
  FILE* stream_;
};
