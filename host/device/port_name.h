// The words after --port.
#pragma once

#include <string>

enum class port_kind {
  serial,      // /dev/ttyUSB0
  pseudo,      // /dev/pts/3: a pseudo-terminal, which has no speed of its own
  tcp,         // tcp:HOST:PORT, bytes as they are
  rfc2217,     // rfc2217:HOST:PORT, a serial port of another computer with its settings
  unix_socket  // unix:PATH
};

struct port_name {
  port_kind kind = port_kind::serial;
  std::string text;     // as typed, for messages
  std::string path;     // of a device or a socket
  std::string host;     // of a network port
  std::string service;  // its port, a number or a name
};

/// Result: what `text` means. Throws device_failure (status_port) with the form that is missing.
port_name port_name_parse(const std::string& text);
