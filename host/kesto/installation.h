// The installation of an image on one device, from its prompt to what boots.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "device/device_state.h"
#include "device/tftp_server.h"
#include "kesto/device_options.h"
#include "kesto/image_check.h"
#include "kesto/progress.h"

struct install_options : device_options {
  std::string image;
  std::string bank;                     // empty = the one that is not booted
  std::vector<std::string> data_ports;  // one for each port, or none: the console takes the image
  unsigned data_number = 2;             // number of that port on the device
  uint32_t data_speed = 115200;
  uint64_t pace = 0;         // bytes per second, 0 = what the line takes
  std::string tftp_address;  // empty = over a serial line
  std::string tftp_file;
  std::string tftp_listen;  // where kesto serves, if not at that address
  uint16_t tftp_port = tftp_server::well_known_port;
  unsigned settle_ms = 2500;  // between the begin of a download and the first byte
  unsigned install_limit_seconds = 1800;
  unsigned boot_limit_seconds = 180;
  std::string expect;  // what a boot shows when it is good
  std::vector<std::string> forced;
  unsigned retries = 0;
  bool serial = false;
  bool erase = false;
  bool check = false;
  bool boot = false;
  bool yes = false;
};

/// An image that was verified on this computer.
struct verified_image {
  std::string path;
  uint64_t size = 0;
  std::vector<image_part> parts;
  std::vector<uint32_t> first_words;  // of the contents of each part, as they stand there
};

/// Reads and verifies an image as a device would. Throws status_failed with file, part and offset.
verified_image install_read_image(const std::string& path);

/// What became of it, for tables and programs.
struct install_record {
  std::string port;
  int status = 0;
  std::string message;  // empty when all is good
  unsigned attempts = 0;
  std::string bank;
  double seconds = 0;
  uint64_t bytes = 0;
  double send_seconds = 0;
  std::vector<std::string> erased;
  std::vector<image_check_finding> findings;
  std::vector<std::string> remarks;  // NOTE: and ERROR: lines of the device
  std::vector<std::string> checked;  // a line for each part that was read back
  std::string booted;                // what came up
};

// Not just "installation": the device's code, which is in this program, has a structure of that name.
class device_installation {
 public:
  device_installation(const install_options& options, const verified_image& image, const tftp_server* server,
                      size_t number, progress_board& progress);

  /// Opens the port, reads the device and judges the image against it. Throws device_failure.
  void prepare();
  /// What has to be erased before, in words for a person: "kernel_2 of /dev/ttyUSB0 (holds 3.1.0.0R1)".
  const std::vector<std::string>& erasures() const { return erasures_; }
  /// Erases, sends, checks, boots, as the options say. Throws device_failure.
  void perform();
  /// Closes the port.
  void close() { connection_.reset(); }

  install_record& record() { return record_; }

 private:
  template <typename Action>
  void guarded(Action action);
  void judge();
  void erase();
  void send_serial();
  void fetch();
  void take_result(const answer& given);
  void check();
  void boot();
  std::string state_of_banks() const;

  const install_options& options_;
  const verified_image& image_;
  const tftp_server* server_;
  size_t number_;
  progress_board& progress_;
  install_record record_;
  std::unique_ptr<device_connection> connection_;
  device_state device_;
  image_check_report report_;
  std::vector<std::string> erasures_;
  std::vector<std::string> erase_commands_;
  bool began_ = false;  // the flash was touched
};
