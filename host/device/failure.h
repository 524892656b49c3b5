// How talking to a device fails, and the exit status that each way has.
#pragma once

#include <stdexcept>
#include <string>

/// Exit statuses of the commands that talk to a device. 0 to 2 mean the same in every command of kesto.
enum device_statuses : int {
  status_success = 0,
  status_failed = 1,         // an input on this computer is bad, or the system refused
  status_device_failed = 3,  // the device did not do what it was told, and said so
  status_no_prompt = 4,      // the shell does not answer within its time
  status_port = 5,           // the port is not there, in use, or cannot be set up
  status_line_lost = 6,      // the line went away: a pulled cable, a server that vanished
  status_restarted = 7,      // the device restarted in the middle
  status_refused = 8,        // the image is not for this device, or the person said no
  status_server = 9,         // the file could not be served
  status_interrupted = 130,  // Ctrl-C
};

/// Thrown where talking to a device ends. what() is one line that says in which state the device is.
class device_failure : public std::runtime_error {
 public:
  device_failure(device_statuses status, const std::string& text)
      : std::runtime_error(text), status_(status) {}
  device_statuses status() const { return status_; }

 private:
  device_statuses status_;
};

/// Result: the word that stands for a status in JSON: "success", "no_prompt".
const char* device_status_name(int status);
