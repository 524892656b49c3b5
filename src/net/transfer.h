// Fetching files by TFTP, and asking for answers by ping. A host is given by its four numbers, first number
// first.
#pragma once

#include <cstdint>

#include "util/exec.h"

/// Says which interface carries a transfer, and starts it by DHCP unless it is started. Result: true, or
/// false after an error.
bool net_start_for_transfer();

/// Fetches `file_remote` from `server` into `file_local`; without one (null or empty) under its own name into
/// the working directory. The interface is started as above. The client gets the names exactly as they are.
/// Result: true, or false after a message.
bool net_tftp_get(const uint8_t* server, const char* file_remote, const char* file_local);

/// Composes the command line that fetches `file_remote` from `server` to standard output. Result: true, or
/// false after an error.
bool net_tftp_compose_stream(long_command_line& line, const uint8_t* server, const char* file_remote);

/// Sends four echo requests through an interface and shows what the tool says. Result: true, whatever was
/// answered; false after an error when the tool could not be started.
bool net_ping(int if_index, const uint8_t* host);
