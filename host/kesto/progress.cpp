// Draws with escapes on a terminal: ESC[nA goes up, ESC[K clears to the end of the line.
#include "kesto/progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace {

using clock_type = std::chrono::steady_clock;

constexpr std::chrono::milliseconds redraw{100};
constexpr unsigned bar_characters = 24;

}  // namespace

progress_board::progress_board(std::vector<std::string> names, bool quiet)
    : quiet_(quiet), terminal_(isatty(STDERR_FILENO) != 0) {
  for (std::string& name : names) {
    device_line line;
    line.name = std::move(name);
    lines_.push_back(line);
  }
}

void progress_board::state(size_t device, const std::string& text) {
  const std::lock_guard<std::mutex> lock(mutex_);
  device_line& line = lines_[device];
  line.text = text;
  line.done = line.total = 0;
  line.shown_tenths = 0;
  line.begun = clock_type::now();
  if (quiet_) {
    return;
  }
  if (terminal_) {
    draw();
  } else {
    fmt::print(stderr, "{}: {}\n", line.name, text);
  }
}

void progress_board::bytes(size_t device, uint64_t done, uint64_t total) {
  const std::lock_guard<std::mutex> lock(mutex_);
  device_line& line = lines_[device];
  line.done = done;
  line.total = total;
  if (quiet_ || total == 0) {
    return;
  }
  const auto tenths = static_cast<unsigned>(10 * done / total);
  if (terminal_) {
    if (done == total || clock_type::now() - drawn_at_ > redraw) {
      draw();
    }
  } else if (tenths > line.shown_tenths) {
    line.shown_tenths = tenths;
    fmt::print(stderr, "{}: {}\n", line.name, measure(line));
  }
}

void progress_board::leave() {
  const std::lock_guard<std::mutex> lock(mutex_);
  drawn_ = false;
}

std::string progress_board::measure(const device_line& line) const {
  const double elapsed = std::chrono::duration<double>(clock_type::now() - line.begun).count();
  const double rate = elapsed > 0 ? static_cast<double>(line.done) / elapsed : 0;
  const double left = rate > 0 ? static_cast<double>(line.total - line.done) / rate : 0;
  return fmt::format("{:3} % of {} bytes, {:.1f} KiB/s, {:.0f} s left", 100 * line.done / line.total,
                     line.total, rate / 1024, left);
}

void progress_board::draw() {
  if (drawn_) {
    fmt::print(stderr, "\x1b[{}A", lines_.size());
  }
  for (const device_line& line : lines_) {
    std::string text = line.text;
    if (line.total != 0) {
      const auto full = static_cast<size_t>(bar_characters * line.done / line.total);
      text = fmt::format("[{}{}] {}", std::string(full, '#'), std::string(bar_characters - full, '.'),
                         measure(line));
    }
    fmt::print(stderr, "\r{}: {}\x1b[K\n", line.name, text);
  }
  fflush(stderr);
  drawn_ = true;
  drawn_at_ = clock_type::now();
}
