// The variable "mtdparts", which anybody may have set: what the environment tool prints, against a reader as
// one would write it first; and a value that was written is read back. Byte 0: how the variable begins, and
// the tool's exit status; bytes 1 to 4: the size that is written.
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "fuzz_input.h"
#include "fuzz_tool.h"
#include "mtd/mtdparts.h"

namespace {

void expect(bool holds) {
  if (!holds) {
    abort();
  }
}

const char* after_white_space(const char* text) {
  while (isspace(static_cast<unsigned char>(*text)) != 0) {
    ++text;
  }
  return text;
}

// "atmel_nand:SIZEk(NAME": blanks may stand in front of both.
std::optional<uint32_t> plain_size(const std::string& value, const std::string& name) {
  constexpr const char* chip = "atmel_nand:";
  if (!value.starts_with(chip)) {
    return std::nullopt;
  }
  const char* digits = value.c_str() + strlen(chip);
  char* behind = nullptr;
  const unsigned long kib = strtoul(digits, &behind, 10);
  if (behind == digits || behind[0] != 'k' || behind[1] != '(' ||
      !std::string(after_white_space(behind + 2)).starts_with(name)) {
    return std::nullopt;
  }
  return static_cast<uint32_t>(kib);
}

void judge_read(const std::string& name) {
  // Two bytes of the buffer stay free.
  std::string value = tool_output.substr(0, 254).c_str();
  value.resize(std::min(value.find('\n'), value.size()));
  const auto expected = tool_status == 0 ? plain_size(value, name) : std::nullopt;
  uint32_t size_kib = 0xA5A5A5A5;
  const bool found = ubi_get_mtd_size_from_env(name.c_str(), &size_kib);
  expect(found == expected.has_value());
  expect(size_kib == (found ? *expected : 0xA5A5A5A5));
}

// What the shell makes of the line: the quotes are its own.
std::string written_value() {
  const size_t begin = tool_line.find('"');
  const size_t end = tool_line.rfind('"');
  expect(begin != std::string::npos && end > begin);
  return tool_line.substr(begin + 1, end - begin - 1);
}

void judge_written(uint32_t size_kib) {
  tool_status = 0;
  expect(ubi_set_mtd_size_to_env("ubi0", size_kib));
  if (size_kib == 0) {
    expect(tool_line.find('"') == std::string::npos);
    return;
  }
  tool_output = written_value() + "\n";
  uint32_t read_kib = 0;
  expect(ubi_get_mtd_size_from_env("ubi0", &read_kib) && read_kib == size_kib);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  run_all_messages_silently();
  uint32_t written = 0;
  if (size < 1 + sizeof written) {
    return 0;
  }
  memcpy(&written, data + 1, sizeof written);
  constexpr const char* beginnings[] = {"atmel_nand:", "", "atmel_nand:65536k(",
                                        "atmel_nand:65536k(ubi0),-("};
  tool_status = data[0] >> 7;
  tool_output = beginnings[data[0] % 4];
  tool_output.append(reinterpret_cast<const char*>(data + 1 + sizeof written),
                     std::min(size - 1 - sizeof written, tool_output_most - 32));
  judge_read("ubi0");
  judge_read("user");
  judge_written(written);
  return 0;
}
