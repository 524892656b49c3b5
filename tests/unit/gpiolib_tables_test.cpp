// The signal tables against the boards' documents, row by row and column by column.
#include <set>
#include <sstream>

#include "model_test.h"
#include "platform/control_device.h"
#include "platform/pin_mode.h"

namespace {

constexpr const char* documents[] = {
#include "signals.inc"
};

struct named_operation {
  const char* name;
  bool (*operation)(int);
};

const named_operation operations[] = {
    {"-", nullptr},           {"i2csda", ctrl_i2csda_mode}, {"i2cscl", ctrl_i2cscl_mode},
    {"tx1", ctrl_tx1_mode},   {"rx1", ctrl_rx1_mode},       {"rts1", ctrl_rts1_mode},
    {"cts1", ctrl_cts1_mode}, {"tx2", ctrl_tx2_mode},       {"rx2", ctrl_rx2_mode},
    {"rts2", ctrl_rts2_mode}, {"cts2", ctrl_cts2_mode},     {"nresetin", ctrl_test_nresetin},
};

std::string name_of(bool (*operation)(int)) {
  for (const named_operation& row : operations) {
    if (row.operation == operation) return row.name;
  }
  return "?";
}

std::string name_of(const char* const* names, uint32_t count, uint32_t index) {
  return index < count ? names[index] : "?";
}

std::string document_row(const gpiolib_signal& row) {
  std::ostringstream text;
  text << row.gpio << '|' << row.name << '|' << row.description << '|' << row.source << '|' << row.connector
       << '|' << row.cpu_pin << '|' << name_of(gpiolib_direction_names, 3, row.direction) << '|'
       << name_of(gpiolib_resistor_names, 3, row.pull) << '|'
       << name_of(gpiolib_state_names, 3, row.default_state) << '|' << row.flag_a << '|' << row.io_mode << '|'
       << name_of(row.pin_mode) << '|' << row.partner << '|' << row.button << '|' << name_of(row.reader);
  return text.str();
}

lines rows_of(const std::string& document) {
  lines rows;
  std::istringstream stream(document.substr(1));
  for (std::string line; std::getline(stream, line);)
    rows.push_back(line);
  return rows;
}

void compare(const gpiolib_signal* table, int32_t size, const char* document) {
  const lines rows = rows_of(document);
  ASSERT_EQ(static_cast<size_t>(size), rows.size());
  for (int32_t i = 0; i < size; i++)
    EXPECT_EQ(document_row(table[i]), rows[static_cast<size_t>(i)]) << "row " << i;
}

TEST(gpiolib_tables_test, tk20) {
  EXPECT_EQ(gpiolib_tk20_size, 43);
  compare(gpiolib_tk20, gpiolib_tk20_size, documents[0]);
}

TEST(gpiolib_tables_test, tk10_mfg) {
  EXPECT_EQ(gpiolib_tk10_mfg_size, 25);
  compare(gpiolib_tk10_mfg, gpiolib_tk10_mfg_size, documents[1]);
}

TEST(gpiolib_tables_test, names_of_values) {
  EXPECT_EQ(lines(gpiolib_direction_names, gpiolib_direction_names + 3), lines({"in", "out", "-"}));
  EXPECT_EQ(lines(gpiolib_resistor_names, gpiolib_resistor_names + 3), lines({"up", "down", "none"}));
  EXPECT_EQ(lines(gpiolib_state_names, gpiolib_state_names + 3), lines({"0", "1", "-"}));
}

void expect_unique(const gpiolib_signal* table, int32_t size) {
  std::set<std::string> names;
  std::set<int32_t> numbers;
  for (int32_t i = 0; i < size; i++) {
    EXPECT_TRUE(names.insert(table[i].name).second) << table[i].name;
    EXPECT_TRUE(numbers.insert(table[i].gpio).second) << table[i].gpio;
    EXPECT_TRUE(table[i].gpio == -1 || (table[i].gpio >= 32 && table[i].gpio <= 159)) << table[i].gpio;
    EXPECT_EQ(table[i].direction == gpiolib_direction_out, table[i].default_state != gpiolib_state_none);
  }
}

TEST(gpiolib_tables_test, names_and_numbers_are_unique_and_outputs_have_a_default) {
  expect_unique(gpiolib_tk20, gpiolib_tk20_size);
  expect_unique(gpiolib_tk10_mfg, gpiolib_tk10_mfg_size);
}

}  // namespace
