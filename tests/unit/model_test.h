// What the unit tests of the models share: a device without product record, which is the default model,
// records built by hand, and the kernel's tree of GPIO lines.
#ifndef MODEL_TEST_H
#define MODEL_TEST_H

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "loader_test.h"
#include "platform/gpiolib.h"
#include "prodcfg/record.h"

class model_test : public loader_test {
 protected:
  model_test() { reset(); }
  ~model_test() override { reset(); }

  static void reset() {
    prodcfg_reset();
    g_product_config_avail = 0;
    g_opmode_io = opmode_io_none;
    g_opmode_num_serports = 2;
    gpiolib_current = gpiolib_tk20;
    gpiolib_current_size = 43;
  }

  // The kernel's tree with these lines exported already; what is written there is listed by gpio_writes().
  void make_gpio_tree(const std::vector<int>& numbers) {
    root.write_file("/sys/class/gpio/export", "");
    root.write_file("/sys/class/gpio/unexport", "");
    for (const int number : numbers) {
      const std::string line = "/sys/class/gpio/gpio" + std::to_string(number);
      std::filesystem::create_directory(line);
      root.write_file(line + "/direction", "in\n");
      root.write_file(line + "/value", "0\n");
    }
    root.trace("/sys/class/gpio");
  }

  void make_whole_gpio_tree() {
    std::vector<int> all;
    for (int number = 32; number <= 159; number++)
      all.push_back(number);
    make_gpio_tree(all);
  }

  // What was written below /sys/class/gpio, in order: "gpio74/value 1". A value without the one zero byte
  // that ends it is marked.
  lines gpio_writes() const {
    const std::string top = "/sys/class/gpio/";
    lines writes;
    for (const device_event& event : root.events("write")) {
      std::string value = event.fields[3];
      if (value.empty()) {
        value = "failed";
      } else if (value.find('\0') == value.size() - 1) {
        value.pop_back();
      } else {
        value += " (not ended once)";
      }
      writes.push_back(event.fields[0].substr(top.size()) + " " + value);
    }
    return writes;
  }
};

// ---------------------------------------------------------------------------------------------- product
// records

inline std::string little_endian(unsigned value) {
  return {static_cast<char>(value), static_cast<char>(value >> 8)};
}

inline std::string item(int type, const std::string& value) {
  return static_cast<char>(type) + little_endian(static_cast<unsigned>(value.size())) + value;
}

// Makes the checksum of the first `total` bytes right.
inline std::string sealed(std::string record, size_t total) {
  record.replace(0, 2, 2, '\0');
  unsigned sum = 0;
  for (size_t i = 0; i < total; i++)
    sum += static_cast<unsigned>(static_cast<uint8_t>(record[i])) << (8 * (i % 2));
  record.replace(0, 2, little_endian(0x10000 - (sum & 0xFFFF)));
  return record;
}

// A whole record of these items.
inline std::string record_of(const std::string& items) {
  const size_t total = 4 + items.size();
  return sealed(std::string(2, '\0') + little_endian(static_cast<unsigned>(total)) + items, total);
}

#endif
