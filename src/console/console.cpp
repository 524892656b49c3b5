// Reads "cli_console=" from /proc/cmdline, opens /dev/ttyS0 to 2 on the descriptors 0 to 2 and sets the
// terminal (termios(3)): no echo, no line editing, no signals while a line is typed.
#include "console/console.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "console/line_driver.h"
#include "platform/mode.h"
#include "util/log.h"
#include "util/signals.h"
#include "util/unique_fd.h"
#include "util/unique_file.h"

namespace {

// Opens the console's port on the standard descriptor `fd`. If the port cannot be opened, `fd` keeps its old
// file: a shell without descriptor 0 answers nobody. Standard error then follows standard output. Nothing may
// hold the old port when the last of the three is opened, or the session keeps its terminal, and Ctrl-C stays
// on the old port.
bool reopen_descriptor(int fd, const char* path) {
  const int flags = fcntl(fd, F_GETFL);
  const int substitute = fd == STDERR_FILENO ? STDOUT_FILENO : fd;
  const unique_fd spare(fcntl(substitute, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  close(fd);
  // Not blocking, for an open that waits for a carrier would never end.
  const int opened = open(path, O_RDWR | O_NONBLOCK);
  if (opened != fd) {
    const int error = errno;
    if (opened >= 0) {
      close(opened);
    }
    if (spare) {
      dup2(spare.get(), fd);
    }
    errno = error;
    perror("tty_remap_stdio: open()");  // last, because `fd` may be standard error
    return false;
  }
  fcntl(fd, F_SETFL, flags != -1 ? flags : O_RDWR);
  return true;
}

termios console_settings(const tty_port& port, speed_t speed) {
  termios settings = {};
  settings.c_iflag = IGNBRK | ICRNL;
  settings.c_oflag = OPOST | ONLCR;
  settings.c_cflag = speed | CS8 | CREAD | CLOCAL;
  if (port.flow == tty_flow_hw) {
    settings.c_cflag |= CRTSCTS;
  }
  settings.c_cc[VINTR] = 3;
  settings.c_cc[VERASE] = 8;
  settings.c_cc[VMIN] = 1;
  settings.c_cc[VTIME] = 0;
  return settings;
}

// Applies the settings to descriptor 0 and puts its line driver into the mode.
bool apply_console(const tty_port& port, const termios& settings) {
  if (tcsetattr(STDIN_FILENO, TCSANOW, &settings) != 0) {
    perror("tty_set_termios: tcsetattr()");
    return false;
  }
  if (!tty_configure_mode(port)) {
    perror("tty_set_termios: tty_configure_mode()");
    return false;
  }
  return true;
}

// Gives descriptor 0 the console's settings and its line driver the mode. If that fails half-way, `fallback`
// is applied, or what the port had if `fallback` is not known.
bool set_termios(const tty_port& port, const termios& fallback, termios* applied) {
  termios previous;
  if (tcgetattr(STDIN_FILENO, &previous) != 0) {
    perror("tty_set_termios: tcgetattr(prev_tio)");
    return false;
  }
  speed_t speed;
  if (!tty_speed_constant(port.speed, &speed)) {
    errno = EINVAL;
    perror("tty_set_termios: speed");
    return false;
  }
  *applied = console_settings(port, speed);
  if (!apply_console(port, *applied)) {
    tty_apply_settings(STDIN_FILENO, fallback.c_cflag != 0 ? fallback : previous);
    return false;
  }
  return true;
}

const char* termination_text(const tty_port& port) {
  if (port.mode == tty_mode_rs232) {
    return "n/a";
  }
  return port.termination ? "on" : "off";
}

// The inherited descriptors may be non-blocking; the shell and its tools expect reads that wait.
void make_blocking(int fd) {
  const int flags = fcntl(fd, F_GETFL);
  if (flags != -1 && (flags & (O_NONBLOCK | O_ASYNC)) != 0) {
    fcntl(fd, F_SETFL, flags & ~(O_NONBLOCK | O_ASYNC));
  }
}

// Waits on the new port, where Ctrl-C is heard. Result: false when that ended the wait.
bool wait_uninterrupted(unsigned seconds) {
  const sigint_deferred until_asleep;
  sigint_install_test_interrupt();
  tty_set_isig(1);
  const bool uninterrupted = until_asleep.sleep(seconds);
  sigint_install_ignore();
  return uninterrupted;
}

}  // namespace

void get_cli_console_from_cmdline() {
  const unique_file file("/proc/cmdline", "re");
  if (!file) {
    log_printf(level_error, "Failed to open /proc/cmdline to get cli_console settings\n");
    return;
  }
  char line[255];
  if (fgets(line, sizeof line, file.stream()) == nullptr) {
    log_printf(level_error, "Failed to read /proc/cmdline to get cli_console settings\n");
    return;
  }
  const char* setting = strstr(line, "cli_console=");
  if (setting == nullptr) {
    log_printf(level_error, "Failed to find cli_console= in kernel cmdline -- using defaults\n");
    return;
  }
  int port = 0;
  int speed = 0;
  // NOLINTNEXTLINE(cert-err34-c): any number is taken here; one that is no port or speed fails when mapped
  if (sscanf(setting, "cli_console=ttyS%d,%d", &port, &speed) != 2) {
    log_printf(level_error, "Failed to parse cli_console= in kernel cmdline -- using defaults\n");
    return;
  }
  tty_cli.port = port;
  tty_cli.speed = static_cast<uint32_t>(speed);
}

void tty_init() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    make_blocking(fd);
  }
  tty_cli = {};
  get_cli_console_from_cmdline();
  if (!tty_remap_stdio(&tty_cli, 0)) {
    log_printf(level_error, "Error in remapping stdio to %s%i\n", tty_cli.device, tty_cli.port);
  }
}

bool tty_validate_settings(const tty_port* port) {
  if (port->mode == tty_mode_rs232) {
    return true;
  }
  if (port->port == 0) {
    log_printf(level_error, "%s not valid on %s%d\n", tty_mode_names[port->mode], port->device, port->port);
    return false;
  }
  if (g_opmode_board == opmode_board_tk20) {
    return true;
  }
  log_printf(level_error, "%s not valid in current operational mode (%s)\n", tty_mode_names[port->mode],
             opmode_board_names[g_opmode_board]);
  return false;
}

bool tty_remap_stdio(tty_port* port, unsigned delay_seconds) {
  const tty_path path = tty_path_of(*port);
  log_printf(level_verbose, "%s: dev=%s%i delay_secs=%u\n", __func__, port->device, port->port,
             delay_seconds);
  tty_save_settings(STDIN_FILENO, &port->saved_termios);
  const termios fallback = port->saved_termios;
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (!reopen_descriptor(fd, path.text())) {
      return false;
    }
  }
  port->fd = STDIN_FILENO;
  termios applied;
  if (!set_termios(*port, fallback, &applied)) {
    perror("tty_remap_stdio: tty_set_termios()");
    return false;
  }
  tty_port previous = tty_cli;
  port->saved_termios = fallback;
  port->applied_termios = applied;
  tty_cli = *port;
  if (delay_seconds != 0 && !wait_uninterrupted(delay_seconds)) {
    tty_remap_stdio(&previous, 0);
    return false;
  }
  tty_show_console();
  return true;
}

void tty_show_console() {
  log_printf(level_plain, "\n");
  log_printf(level_plain, "Current console settings:\n");
  log_printf(level_plain, "  Device: %s%d\n", tty_cli.device, tty_cli.port);
  log_printf(level_plain, "  Mode:   %s\n", tty_mode_names[tty_cli.mode]);
  log_printf(level_plain, "  Speed:  %i bps\n", static_cast<int>(tty_cli.speed));
  log_printf(level_plain, "  Flow:   %s\n", tty_flow_names[tty_cli.flow]);
  log_printf(level_plain, "  Term:   %s\n", termination_text(tty_cli));
  log_printf(level_plain, "\n");
}

int tty_read_cli_byte() {
  for (;;) {
    errno = 0;
    const int byte = fgetc(stdin);
    if (byte != EOF) {
      return byte;
    }
    const bool would_block = ferror(stdin) != 0 && (errno == EAGAIN || errno == EINTR);
    clearerr(stdin);
    if (!would_block) {
      return EOF;
    }
    pollfd input = {.fd = STDIN_FILENO, .events = POLLIN, .revents = 0};
    poll(&input, 1, -1);
  }
}

int tty_set_isig(int on) {
  termios settings;
  if (tcgetattr(STDIN_FILENO, &settings) != 0) {
    return -1;
  }
  if (on != 0) {
    settings.c_lflag |= ISIG;
  } else {
    settings.c_lflag &= ~static_cast<tcflag_t>(ISIG);
  }
  return tcsetattr(STDIN_FILENO, TCSANOW, &settings);
}
