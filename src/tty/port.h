// A serial port: its record, raw opening for binary transfers, and receiving a file over it. The console is
// such a port, and images arrive over the very line that carries the commands.
#pragma once

#include <termios.h>

#include <cstdint>

#include "util/text_buffer.h"

enum tty_modes : uint32_t { tty_mode_rs232, tty_mode_rs485, tty_mode_rs422, tty_mode_count };
enum tty_flows : uint32_t { tty_flow_none, tty_flow_hw, tty_flow_count };

/// Names indexed by mode and flow.
extern const char* const tty_mode_names[tty_mode_count];
extern const char* const tty_flow_names[tty_flow_count];

/// One serial port. A transfer changes its own copy, never the console's.
struct tty_port {
  int32_t fd = -1;                   // -1 when closed; 0 for the console once it is mapped
  const char* device = "/dev/ttyS";  // path without the number
  int32_t port = 1;                  // number of the device
  uint32_t speed = 115200;           // bits per second
  tty_modes mode = tty_mode_rs232;   // of the line driver
  tty_flows flow = tty_flow_hw;      // of the console; tty_open_raw() goes by the port number
  bool termination = false;          // of the bus; rs485 and rs422 only
  termios saved_termios = {};        // of the descriptor before the last opening or move; zeroes: not known
  termios applied_termios = {};      // as this program set them last; zeroes: never
};

using tty_path = text_buffer<32>;
/// Result: the path of a port's device.
tty_path tty_path_of(const tty_port& port);

/// The highest port number that commands accept.
constexpr int tty_highest_port = 2;

/// The console. Set at start-up, later changed by a successful remapping only (console/console.h).
extern tty_port tty_cli;

/// Reads a terminal's settings; what cannot be read becomes all zeroes.
void tty_save_settings(int fd, termios* settings);
/// Applies settings at once. Zeroes are not applied: speed 0 would hang the line up. Result: that of
/// tcsetattr().
int tty_apply_settings(int fd, const termios& settings);

/// Result: true for the eight speeds from 9600 to 921600 that the ports have.
bool tty_speed_is_valid(uint32_t speed);
/// Result: true with the terminal constant of a valid speed.
bool tty_speed_constant(uint32_t speed, speed_t* constant);

/// Opens the port for binary transfer, saves its settings, discards pending input and stores the descriptor
/// in `fd`. Every port but 0 gets RTS/CTS flow control, whatever the record says. Result: true, or false
/// after a text on standard error; after an unknown speed the descriptor stays open, but not in the record.
bool tty_open_raw(tty_port* port);
/// Restores the saved settings, closes and sets `fd` to -1, if it is open. The console is opened again.
void tty_close_raw(tty_port* port);

/// Receives a file. The first byte may take 30 seconds; 3 seconds of silence end the file. The record is left
/// closed, and the console with its own settings. Result: true when at least one byte arrived and all were
/// written to `path`; false after an error. `is_partial` is set in every case: whether a failed download has
/// left its part in a regular file there, for the caller to remove. Anything else at `path` is not the
/// download's to remove.
bool tty_receive_file(tty_port* port, const char* path, bool* is_partial);
/// The same for a caller who leaves everything where it is.
bool tty_download(tty_port* port, const char* path);

/// Discards console input that was not read yet. Result: true.
bool tty_flush_cli_input();

/// Opens standard input on the console again, with the console's settings, if an operation has closed it.
/// Nothing is logged.
void tty_restore_cli_input();
