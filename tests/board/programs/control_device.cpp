// Runs one operation of the control device library on the board it is put on:
//
//   control_device LEVEL OPERATION [ARGUMENT]
//
// Shows what the operation says at this verbosity, what it stored ("status 0x1"), and last "result 1".
#include "platform/control_device.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/pin_mode.h"
#include "util/log.h"

namespace {

// Shows what an operation made of the status that stood at `place` before.
bool shown(bool result, const uint32_t* place) {
  printf("status 0x%x\n", *place);
  return result;
}

bool run_status(const char*) {
  uint32_t status = 0xA5A5A5A5;
  return shown(ctrl_urst_status(&status), &status);
}

// Without an argument: that of the status request.
bool run_sleep(const char* argument) {
  uint32_t status = 0xA5A5A5A5;
  if (argument != nullptr) {
    return ctrl_sleep(strtoul(argument, nullptr, 0));
  }
  return shown(ctrl_sleep(reinterpret_cast<unsigned long>(&status)), &status);
}

template <bool (*operation)()>
bool run(const char*) {
  return operation();
}

template <bool (*operation)(int)>
bool run_number(const char* argument) {
  return operation(argument != nullptr ? atoi(argument) : 0);
}

struct named_operation {
  const char* name;
  bool (*run)(const char* argument);
};

constexpr named_operation operations[] = {
    {"ctrl_urst_disable", run<ctrl_urst_disable>},
    {"ctrl_urst_enable", run<ctrl_urst_enable>},
    {"ctrl_urst_status", run_status},
    {"ctrl_erst_assert", run<ctrl_erst_assert>},
    {"ctrl_ethphy_powerdown", run<ctrl_ethphy_powerdown>},
    {"ctrl_ethphy_powerup", run<ctrl_ethphy_powerup>},
    {"ctrl_wlan_powerdown", run<ctrl_wlan_powerdown>},
    {"ctrl_wlan_powerup", run<ctrl_wlan_powerup>},
    {"ctrl_sleep", run_sleep},
    {"ctrl_test_nresetin", run_number<ctrl_test_nresetin>},
    {"ctrl_i2cscl_mode", run_number<ctrl_i2cscl_mode>},
    {"ctrl_i2csda_mode", run_number<ctrl_i2csda_mode>},
    {"ctrl_tx1_mode", run_number<ctrl_tx1_mode>},
    {"ctrl_rx1_mode", run_number<ctrl_rx1_mode>},
    {"ctrl_rts1_mode", run_number<ctrl_rts1_mode>},
    {"ctrl_cts1_mode", run_number<ctrl_cts1_mode>},
    {"ctrl_tx2_mode", run_number<ctrl_tx2_mode>},
    {"ctrl_rx2_mode", run_number<ctrl_rx2_mode>},
    {"ctrl_rts2_mode", run_number<ctrl_rts2_mode>},
    {"ctrl_cts2_mode", run_number<ctrl_cts2_mode>},
};

}  // namespace

int main(int argc, char** argv) {
  if (argc >= 3) {
    log_level = static_cast<uint32_t>(atoi(argv[1]));
    for (const named_operation& operation : operations) {
      if (strcmp(argv[2], operation.name) == 0) {
        printf("result %d\n", operation.run(argv[3]));
        return 0;
      }
    }
  }
  fprintf(stderr, "usage: control_device LEVEL OPERATION [ARGUMENT]\n");
  return 2;
}
