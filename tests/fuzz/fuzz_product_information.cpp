// A product information file; what is taken from it ends where its field does, and can be shown.
#include <cstdlib>
#include <cstring>

#include "analysis/product_info.h"
#include "fuzz_input.h"
#include "util/printable.h"

namespace {

void check_shown(const char* text) {
  for (; *text != '\0'; ++text) {
    if (*text < ' ' || *text > '~') {
      abort();
    }
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // The key that a text stands behind is not to be found by chance: bytes 1 and 2 stand for the keys.
  static char text[1 << 16];
  size_t length = 0;
  for (size_t i = 0; i < size && length < sizeof text - 32; ++i) {
    const char* key = data[i] == 1 ? "VEXO_PRODUCT_VERSION" : data[i] == 2 ? "VEXO_PRODUCT_CODE" : nullptr;
    if (key != nullptr) {
      memcpy(text + length, key, strlen(key));
      length += strlen(key);
    } else {
      text[length++] = static_cast<char>(data[i]);
    }
  }
  flash_analysis record = {};
  record.size = 0x1122334455667788;
  record.crc = 0x99AABBCC;
  record.clean = 0xDD;
  product_info_read(input_file(reinterpret_cast<const uint8_t*>(text), length).path(), &record);
  if (record.size != 0x1122334455667788 || record.crc != 0x99AABBCC || record.clean != 0xDD) {
    abort();
  }
  check_shown(printable<sizeof record.version>(record.version).text());
  check_shown(printable<sizeof record.code>(record.code).text());
  return 0;
}
