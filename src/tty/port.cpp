// Opens /dev/ttyS0 to 2 and sets their terminal settings (termios(3)). A file download has no framing, no
// length and no checksum: the silence behind the last byte is its end.
#include "tty/port.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "util/heap_buffer.h"
#include "util/log.h"
#include "util/stream.h"
#include "util/text_buffer.h"
#include "util/unique_file.h"

const char* const tty_mode_names[tty_mode_count] = {"rs232", "rs485", "rs422"};
const char* const tty_flow_names[tty_flow_count] = {"noflow", "hwflow"};

tty_port tty_cli;

namespace {

struct speed_row {
  uint32_t bps;
  speed_t constant;
};

constexpr speed_row speeds[] = {
    {9600, B9600},     {19200, B19200},   {38400, B38400},   {57600, B57600},
    {115200, B115200}, {230400, B230400}, {460800, B460800}, {921600, B921600},
};

constexpr unsigned start_seconds = 30;  // the time that a person has to start the sender
constexpr unsigned settle_seconds = 1;

termios raw_settings(const tty_port& port, speed_t speed) {
  termios settings = {};
  settings.c_iflag = IGNPAR;
  settings.c_cflag = speed | CS8 | CREAD | CLOCAL;
  if (port.port != 0) {
    settings.c_cflag |= CRTSCTS;
  }
  settings.c_cc[VMIN] = 1;
  settings.c_cc[VTIME] = 0;
  return settings;
}

// perror() that leaves errno to the caller.
void report_error(const char* what) {
  const int error = errno;
  perror(what);
  errno = error;
}

using error_text = text_buffer<256>;  // cut where a long path does not fit

// Receives until the line falls silent. Result: true when something arrived and all of it is in `file`;
// `total` has the count in every case, `error` the text when the file failed.
bool receive_until_silent(int fd, FILE* file, uint8_t* buffer, uint32_t& total, error_text& error) {
  for (;;) {
    if (!stream_wait(fd, total == 0 ? start_seconds : stream_idle_seconds)) {
      return total != 0;
    }
    const ssize_t got = read(fd, buffer, stream_piece_size);
    if (got <= 0) {
      return total != 0;
    }
    if (fwrite(buffer, static_cast<size_t>(got), 1, file) != 1) {
      error.format_cut("fwrite(%i) error(%s)\n", static_cast<int>(got), strerror(errno));
      return false;
    }
    total += static_cast<uint32_t>(got);
  }
}

// Opens port and file and receives. Both stay open: an error of the last write is shown after the port is
// given back. Result and `error` as above.
bool receive_file(tty_port* port, const char* path, unique_file& file, uint32_t& total, error_text& error) {
  const heap_buffer buffer(stream_piece_size);
  if (!buffer) {
    error.format_cut("malloc(%i) error(%s)\n", static_cast<int>(stream_piece_size), strerror(errno));
    return false;
  }
  if (!tty_open_raw(port)) {
    error.format_cut("tty_open_raw() error(%s)\n", strerror(errno));
    return false;
  }
  if (!file.open(path, "wbe")) {
    error.format_cut("fopen(%s) error(%s)\n", path, strerror(errno));
    return false;
  }
  return receive_until_silent(port->fd, file.stream(), buffer.data(), total, error);
}

// Whether the open `file` is a regular one and `path` its own name, not that of a link to it.
bool holds_regular_file(const unique_file& file, const char* path) {
  struct stat opened;
  struct stat named;
  return file && fstat(fileno(file.stream()), &opened) == 0 && S_ISREG(opened.st_mode) &&
         lstat(path, &named) == 0 && named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

}  // namespace

tty_path tty_path_of(const tty_port& port) {
  tty_path path;
  path.format("%s%i", port.device, port.port);
  return path;
}

void tty_save_settings(int fd, termios* settings) {
  if (tcgetattr(fd, settings) != 0) {
    *settings = {};
  }
}

int tty_apply_settings(int fd, const termios& settings) {
  return settings.c_cflag != 0 ? tcsetattr(fd, TCSANOW, &settings) : 0;
}

bool tty_speed_is_valid(uint32_t speed) {
  speed_t constant;
  return tty_speed_constant(speed, &constant);
}

bool tty_speed_constant(uint32_t speed, speed_t* constant) {
  for (const speed_row& row : speeds) {
    if (row.bps == speed) {
      *constant = row.constant;
      return true;
    }
  }
  return false;
}

bool tty_open_raw(tty_port* port) {
  const tty_path path = tty_path_of(*port);
  const int fd = open(path.text(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (fd < 0) {
    report_error("tty_open_raw: open()");
    return false;
  }
  log_printf(level_verbose, "%s: dev=%s speed=%i\n", __func__, path.text(), static_cast<int>(port->speed));
  tty_save_settings(fd, &port->saved_termios);
  speed_t speed;
  if (!tty_speed_constant(port->speed, &speed)) {
    errno = EINVAL;
    report_error("tty_open_raw: speed");
    return false;
  }
  const termios settings = raw_settings(*port, speed);
  tcflush(fd, TCIFLUSH);
  tcsetattr(fd, TCSANOW, &settings);
  port->applied_termios = settings;
  port->fd = fd;
  return true;
}

void tty_close_raw(tty_port* port) {
  if (port->fd >= 0) {
    tty_apply_settings(port->fd, port->saved_termios);
    close(port->fd);
    port->fd = -1;
    // If it was descriptor 0, the console is opened again, so that what follows can be read.
    tty_restore_cli_input();
  }
  log_printf(level_verbose, "%s: dev=%s%i\n", __func__, port->device, port->port);
}

bool tty_receive_file(tty_port* port, const char* path, bool* is_partial) {
  log_printf(level_info, "tty_download: dev=%s%i file=%s\n", port->device, port->port, path);
  log_printf(level_plain, "Begin serial download...\n");
  sleep(settle_seconds);
  error_text error;
  uint32_t total = 0;
  unique_file file;
  bool received = receive_file(port, path, file, total, error);
  if (port->fd >= 0) {
    // After a failed raw open this is still descriptor 0, the console: closing gives it the settings from
    // before the shell and opens it again.
    tty_close_raw(port);
  }
  const bool is_regular = holds_regular_file(file, path);
  if (!file.close() && received) {
    error.format_cut("fwrite(%i) error(%s)\n", static_cast<int>(total), strerror(errno));
    received = false;
  }
  *is_partial = is_regular && !received;
  log_printf(level_info, "Downloaded %i bytes\n", static_cast<int>(total));
  if (error.text()[0] != '\0') {
    log_printf(level_error, "%s", error.text());
  }
  return received;
}

bool tty_download(tty_port* port, const char* path) {
  bool is_partial;
  return tty_receive_file(port, path, &is_partial);
}

bool tty_flush_cli_input() {
  tcflush(tty_cli.fd, TCIFLUSH);
  return true;
}

void tty_restore_cli_input() {
  if (tty_cli.fd != STDIN_FILENO || fcntl(STDIN_FILENO, F_GETFD) != -1) {
    return;
  }
  const int opened = open(tty_path_of(tty_cli).text(), O_RDWR | O_NONBLOCK);
  if (opened != STDIN_FILENO) {
    if (opened >= 0) {
      close(opened);
    }
    return;
  }
  fcntl(STDIN_FILENO, F_SETFL, O_RDWR);
  // Nothing was applied when the console could not be set up at start-up; then it stays as it is.
  tty_apply_settings(STDIN_FILENO, tty_cli.applied_termios);
}
