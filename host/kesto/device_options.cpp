// Options: --port, --speed, --no-flow, --limit, --reset, --json.
#include "kesto/device_options.h"

#include <fmt/format.h>

#include "kesto/report.h"

void device_options_declare(CLI::App& line, device_options& options, bool several) {
  CLI::Option* port =
      line.add_option("--port", options.ports,
                      several ? "/dev/ttyUSB0, tcp:HOST:PORT, rfc2217:HOST:PORT or unix:PATH;\n"
                                "may be given up to 16 times"
                              : "/dev/ttyUSB0, tcp:HOST:PORT, rfc2217:HOST:PORT or unix:PATH");
  port->type_name("PORT")->group("Device")->required();
  port->allow_extra_args(false);
  if (!several) {
    port->expected(1);
  }
  line.add_option("--speed", options.settings.speed, "bits per second, 115200 unless given")
      ->type_name("BPS")
      ->group("Device");
  line.add_flag_callback(
          "--no-flow", [&options] { options.settings.hardware_flow = false; },
          "the line has no RTS/CTS, as port 0 of a device")
      ->group("Device");
  line.add_option("--limit", options.limit_seconds, "how long the prompt may take to come, 60 unless given")
      ->type_name("SECONDS")
      ->group("Device");
  line.add_flag("--reset", options.after_restart, "wait for a restart of the device, and type nothing before")
      ->group("Device");
  line.add_flag("--json", options.json, "for programs: see docs/kesto-json.md")->group("Device");
}

device_failure device_settle(device_connection& connection, const device_failure& failure,
                             milliseconds limit) {
  if (failure.status() == status_line_lost || failure.status() == status_restarted) {
    return failure;
  }
  const bool at_prompt = connection.shell.recover(limit);
  return {failure.status(), fmt::format("{}; {}", failure.what(),
                                        at_prompt ? "the device is at its prompt"
                                                  : "the line is not at a prompt: the device may still be at "
                                                    "work, look at it before power is cut")};
}

int device_report(const device_failure& failure) {
  report_error("%s", failure.what());
  return failure.status();
}
