// The value of "mtdparts", which anybody may have set.
#include <cstdlib>
#include <cstring>

#include "fuzz_input.h"
#include "mtd/mtdparts.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // As long as the variable's reader lets a value be; first byte: whether it begins as a good one does.
  char value[256] = {};
  const char* begin = size > 0 && data[0] % 2 == 0 ? "atmel_nand:" : "";
  strcpy(value, begin);
  const size_t room = sizeof value - 2 - strlen(begin);
  if (size > 1) {
    memcpy(value + strlen(begin), data + 1, size - 1 < room ? size - 1 : room);
  }
  uint32_t size_kib = 0xA5A5A5A5;
  const bool found = mtdparts_parse(value, "ubi0", &size_kib);
  // White space in front of the name is passed over.
  const char* place = strstr(value, "k(");
  const char* name = place != nullptr ? place + 2 + strspn(place + 2, " \t\n\v\f\r") : "";
  if (found ? strncmp(name, "ubi0", 4) != 0 : size_kib != 0xA5A5A5A5) {
    abort();
  }
  return 0;
}
