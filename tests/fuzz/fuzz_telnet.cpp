// What the server of a serial port sends; byte 0: how the bytes are cut. However that is, the data among them
// are the same, and what was encoded comes back.
#include <algorithm>
#include <cstdlib>
#include <string>
#include <string_view>

#include "device/telnet.h"
#include "fuzz_input.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) {
    return 0;
  }
  const std::string_view received(reinterpret_cast<const char*>(data + 1), size - 1);
  const size_t piece = data[0] == 0 ? 1 : data[0];
  telnet_port whole, cut;
  std::string answer_to_whole, answer_to_cut, from_cut;
  const std::string from_whole = whole.decode(received, answer_to_whole);
  for (size_t at = 0; at < received.size(); at += piece) {
    from_cut += cut.decode(received.substr(at, piece), answer_to_cut);
  }
  if (from_whole != from_cut || answer_to_whole != answer_to_cut || whole.speed() != cut.speed() ||
      whole.settled() != cut.settled() || whole.suspended() != cut.suspended()) {
    abort();
  }
  telnet_port fresh;
  std::string answer;
  if (fresh.decode(telnet_port::encode(received), answer) != received || !answer.empty()) {
    abort();
  }
  return 0;
}
