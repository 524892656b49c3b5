// Numbers, addresses and paths typed by an operator.
#include <cstdlib>
#include <cstring>

#include "fuzz_input.h"
#include "util/file_path.h"
#include "util/parse.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  char text[300] = {};
  memcpy(text, data, size < sizeof text - 1 ? size : sizeof text - 1);
  uint32_t number;
  strdectoul(text, &number);
  ipaddr4_strtoul(text);
  uint8_t mac[6];
  if (macaddr_hextou8(text, mac) && !mac_address_is_valid(mac)) {
    abort();
  }
  if (strlen(text) >= 2) {
    const int byte = strhextou8(text);
    if (byte < -1 || byte > 255) {
      abort();
    }
  }
  char path[64];
  if (filename_copy_and_maybe_add_path(path, sizeof path, "/tmp", text) && strlen(path) >= sizeof path) {
    abort();
  }
  return 0;
}
