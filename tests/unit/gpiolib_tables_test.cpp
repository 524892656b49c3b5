// The signal tables against the boards' documents, row by row and column by column.
#include <set>
#include <sstream>

#include "board_test.h"
#include "platform/control_device.h"
#include "platform/pin_mode.h"

namespace {

// gpio|name|description|source|connector|cpu pin|direction|pull|default|flag a|io mode|pin
// mode|partner|button|reader
constexpr char tk20_document[] = R"(
37|CP9|SW1 for WPS|TK-10|J2-42|PA5|in|up|-|0|0|-|-1|1|-
64|EXT_IN1|External Input 1|TK-10|J2-39|PB0|in|up|-|0|1|-|-1|0|-
65|BARREL_UNDER_VOLT|Barrel under-voltage|TK-10|J2-43|PB1|in|up|-|0|0|-|-1|0|-
66|TERMINAL_UNDER_VOLT|Terminal under-voltage|TK-10|J2-45|PB2|in|up|-|0|0|-|-1|0|-
67|EXT_IN2|External Input 2|TK-10|J2-41|PB3|in|up|-|0|1|-|-1|0|-
72|CP6|Strap 1|TK-10|J2-27|PB8|in|up|-|0|0|-|-1|0|-
73|CP5|Strap 0|TK-10|J2-32|PB9|in|up|-|0|0|-|-1|0|-
74|FAULT_LED|Fault LED|TK-10|J2-37|PB10|out|up|1|0|0|-|-1|0|-
77|DISABLE_SPI_CS|Disable spi flash|TK-10|J2-29|PB13|out|up|0|0|0|-|-1|0|-
80|NRSTTODFLT|Reset to defaults|TK-10|J2-4|PB16|in|up|-|0|0|-|-1|1|-
86|DTR2_232|Line 2 DTR|TK-10|J2-18|PB22|out|up|1|0|0|-|-1|0|-
87|DCD1_232|Line 1 DSR/DCD|TK-10|J2-16|PB23|in|up|-|0|0|-|-1|0|-
88|DTR1_232|Line 1 DTR|TK-10|J2-14|PB24|out|up|1|0|0|-|-1|0|-
89|DCD2_232|Line 2 DSR/DCD|TK-10|J2-20|PB25|in|up|-|0|0|-|-1|0|-
97|CP7|Temperature Event|TK-10|J2-44|PC1|in|up|-|0|0|-|-1|0|-
128|SEL_RS232_2|Line 2 rs232 select|I2C-0x69|P0||out|up|1|0|0|-|-1|0|-
129|4W_B2|Line 2 4-wire select|I2C-0x69|P1||out|up|1|0|0|-|-1|0|-
130|2W_B2|Line 2 2-wire select|I2C-0x69|P2||out|up|1|0|0|-|-1|0|-
132|RX_TE2|Line 2 Rx Termination|I2C-0x69|P4||out|none|0|0|0|-|-1|0|-
133|TX_2W_TE2|Line 2 Tx Termination|I2C-0x69|P5||out|none|0|0|0|-|-1|0|-
134|NHOSTA_OC|USB Host A over-current|I2C-0x69|P6||in|none|-|0|0|-|-1|0|-
135|NHOSTB_OC|USB Host B over-current|I2C-0x69|P7||in|none|-|0|0|-|-1|0|-
136|SEL_RS232_1|Line 1 rs232 select|I2C-0x59|O8||out|none|1|0|0|-|-1|0|-
137|4W_B1|Line 1 4-wire select|I2C-0x59|O9||out|none|1|0|0|-|-1|0|-
138|2W_B1|Line 1 2-wire select|I2C-0x59|O10||out|none|1|0|0|-|-1|0|-
139|EN_EXTWAKE|EXT_IN1 wake cpu enable|I2C-0x59|O11||out|none|1|0|1|-|-1|0|-
140|RX_TE1|Line 1 Rx Termination|I2C-0x59|O12||out|none|0|0|0|-|-1|0|-
141|TX_2W_TE1|Line 1 Tx Termination|I2C-0x59|O13||out|none|0|0|0|-|-1|0|-
142|HOSTB_EN|USB Host B enable|I2C-0x59|O14||out|none|0|1|0|-|-1|0|-
143|HOSTA_EN|USB Host A enable|I2C-0x59|O15||out|none|0|1|0|-|-1|0|-
144|HD_FD|Ethernet duplex LED|I2C-0x68|P0||out|none|0|0|0|-|-1|0|-
147|ULED1|USB Host A LED|I2C-0x68|P3||out|none|0|0|0|-|-1|0|-
148|ULED2|USB Host B LED|I2C-0x68|P4||out|none|0|0|0|-|-1|0|-
149|XLED1|Extra LED 1|I2C-0x68|P5||out|none|0|0|0|-|-1|0|-
150|XLED2|Extra LED 2|I2C-0x68|P6||out|none|0|0|0|-|-1|0|-
151|RELAY|Relay control|I2C-0x68|P7||out|none|0|0|1|-|-1|0|-
152|SIGPWR_LED7|WLAN RSSI LED 7|I2C-0x58|O8||out|none|0|0|0|-|-1|0|-
153|SIGPWR_LED6|WLAN RSSI LED 6|I2C-0x58|O9||out|none|0|0|0|-|-1|0|-
154|SIGPWR_LED5|WLAN RSSI LED 5|I2C-0x58|O10||out|none|0|0|0|-|-1|0|-
155|SIGPWR_LED4|WLAN RSSI LED 4|I2C-0x58|O11||out|none|0|0|0|-|-1|0|-
156|SIGPWR_LED3|WLAN RSSI LED 3|I2C-0x58|O12||out|none|0|0|0|-|-1|0|-
157|SIGPWR_LED2|WLAN RSSI LED 2|I2C-0x58|O13||out|none|0|0|0|-|-1|0|-
158|SIGPWR_LED1|WLAN RSSI LED 1|I2C-0x58|O14||out|none|0|0|0|-|-1|0|-
)";

constexpr char tk10_mfg_document[] = R"(
-1|NRESETIN|Test fixture SW2|TK-10|J1-2|NRST|in|none|-|0|0|-|-1|1|nresetin
36|CP8|Test fixture JP13.16|TK-10|J1-38|PA4|in|up|-|0|0|-|97|0|-
37|CP9|Test fixture JP13.18|TK-10|J1-42|PA5|in|up|-|0|0|-|74|0|-
55|I2CSDA|Test fixture JP1.3|TK-10|J1-33|PA23|in|up|-|0|0|i2csda|66|0|-
56|I2CSCL|Test fixture JP1.2|TK-10|J1-31|PA24|in|up|-|0|0|i2cscl|67|0|-
64|SPI1_MISO|Test fixture JP3.3|TK-10|J1-39|PB0|in|up|-|0|0|-|65|0|-
65|SPI1_MOSI|Test fixture JP3.5|TK-10|J1-43|PB1|in|up|-|0|0|-|64|0|-
66|SPI1_CLK|Test fixture JP3.6|TK-10|J1-45|PB2|in|up|-|0|0|-|55|0|-
67|NSPI1_CS|Test fixture JP3.4|TK-10|J1-41|PB3|in|up|-|0|0|-|56|0|-
70|TX2|Test fixture JP11.2|TK-10|J1-24|PB6|in|up|-|0|0|tx2|71|0|-
71|RX2|Test fixture JP11.4|TK-10|J1-28|PB7|in|up|-|0|0|rx2|70|0|-
72|CP6|Test fixture JP13.12|TK-10|J1-27|PB8|in|up|-|0|0|-|86|0|-
73|CP5|Test fixture JP13.10|TK-10|J1-32|PB9|in|up|-|0|0|-|87|0|-
74|NSPI1_IRQ|Test fixture JP3.2|TK-10|J1-37|PB10|in|up|-|0|0|-|37|0|-
77|DISABLE_SPI_CS|Test fixture SW1|TK-10|J1-29|PB13|in|up|-|1|0|-|-1|1|-
80|NRSTTODFLT|Test fixture SW3|TK-10|J1-4|PB16|in|up|-|0|0|-|-1|1|-
86|CP3|Test fixture JP13.6|TK-10|J1-18|PB22|in|up|-|0|0|-|72|0|-
87|CP2|Test fixture JP13.4|TK-10|J1-16|PB23|in|up|-|0|0|-|73|0|-
88|CP1|Test fixture JP13.2|TK-10|J1-14|PB24|in|up|-|0|0|-|89|0|-
89|CP4|Test fixture JP13.8|TK-10|J1-20|PB25|in|up|-|0|0|-|88|0|-
90|RTS1|Test fixture JP10.6|TK-10|J1-8|PB26|in|up|-|0|0|rts1|91|0|-
91|CTS1|Test fixture JP10.8|TK-10|J1-12|PB27|in|up|-|0|0|cts1|90|0|-
92|RTS2|Test fixture JP11.6|TK-10|J1-26|PB28|in|up|-|0|0|rts2|93|0|-
93|CTS2|Test fixture JP11.8|TK-10|J1-30|PB29|in|up|-|0|0|cts2|92|0|-
97|CP7|Test fixture JP13.14|TK-10|J1-44|PC1|in|up|-|0|0|-|36|0|-
)";

struct named_operation {
  const char* name;
  int (*operation)(int);
};

const named_operation operations[] = {
    {"-", nullptr},           {"i2csda", ctrl_i2csda_mode}, {"i2cscl", ctrl_i2cscl_mode},
    {"tx1", ctrl_tx1_mode},   {"rx1", ctrl_rx1_mode},       {"rts1", ctrl_rts1_mode},
    {"cts1", ctrl_cts1_mode}, {"tx2", ctrl_tx2_mode},       {"rx2", ctrl_rx2_mode},
    {"rts2", ctrl_rts2_mode}, {"cts2", ctrl_cts2_mode},     {"nresetin", ctrl_test_nresetin},
};

std::string name_of(int (*operation)(int)) {
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
  compare(gpiolib_tk20, gpiolib_tk20_size, tk20_document);
}

TEST(gpiolib_tables_test, tk10_mfg) {
  EXPECT_EQ(gpiolib_tk10_mfg_size, 25);
  compare(gpiolib_tk10_mfg, gpiolib_tk10_mfg_size, tk10_mfg_document);
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
