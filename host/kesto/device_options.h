// The options that all commands for devices share, and the session that they lead to.
#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "device/failure.h"
#include "device/line.h"
#include "device/shell_session.h"

struct device_options {
  std::vector<std::string> ports;
  line_settings settings;
  unsigned limit_seconds = 60;
  bool after_restart = false;
  bool json = false;

  milliseconds limit() const { return seconds(limit_seconds); }
};

/// Declares --port (once, or several times when `several`), --speed, --no-flow, --limit, --reset and --json.
void device_options_declare(CLI::App& line, device_options& options, bool several);

/// A line with the session on it; the order of the two matters.
struct device_connection {
  device_connection(const std::string& port, const device_options& options)
      : wire(port_name_parse(port), options.settings), shell(wire) {}
  line wire;
  shell_session shell;
};

/// Brings the line to rest after `failure`, within `limit`. Result: the failure with what became of the line:
/// at its prompt again, or not.
device_failure device_settle(device_connection& connection, const device_failure& failure,
                             milliseconds limit = seconds(15));

/// Says a failure on standard error. Result: its exit status.
int device_report(const device_failure& failure);
