// What people see while devices are at work: on a terminal a line per device that is drawn over and over,
// elsewhere plain lines now and then.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

class progress_board {
 public:
  /// `names` of the devices; `quiet` shows nothing at all. Everything goes to standard error.
  progress_board(std::vector<std::string> names, bool quiet);

  /// A device begins something: "erasing kernel_2".
  void state(size_t device, const std::string& text);
  /// It has got on: `done` of `total` bytes.
  void bytes(size_t device, uint64_t done, uint64_t total);
  /// From here on other things are printed; the next state begins afresh.
  void leave();

 private:
  struct device_line {
    std::string name;
    std::string text;
    uint64_t done = 0;
    uint64_t total = 0;
    unsigned shown_tenths = 0;
    std::chrono::steady_clock::time_point begun;
  };

  std::string measure(const device_line& line) const;
  void draw();

  std::mutex mutex_;
  std::vector<device_line> lines_;
  bool quiet_;
  bool terminal_;
  bool drawn_ = false;
  std::chrono::steady_clock::time_point drawn_at_;
};
