// The operating mode: what each product record makes of it, and what the setters accept.
#include "model_test.h"
#include "platform/discover.h"

namespace {

const std::string absent = "<absent>";

class opmode_test : public model_test {
 protected:
  // A device with this record.
  static void give(const std::string& product_id, const std::string& hwcfg = absent) {
    prodcfg_reset();
    g_product_config_avail = 1;
    if (product_id != absent) {
      memcpy(g_product_config.product_id, product_id.data(), product_id.size());
      g_product_config.product_id_length = static_cast<uint8_t>(product_id.size());
    }
    if (hwcfg != absent) {
      memcpy(g_product_config.hwcfg, hwcfg.data(), hwcfg.size());
      g_product_config.hwcfg_length = static_cast<uint8_t>(hwcfg.size());
    }
  }

  // The mode as text: "tk20 none 2".
  std::string discovered() {
    EXPECT_TRUE(opmode_discover());
    return mode();
  }
  static std::string mode() {
    return std::string(opmode_board_names[g_opmode_board]) + " " + opmode_io_names[g_opmode_io] + " " +
           std::to_string(g_opmode_num_serports);
  }
};

TEST_F(opmode_test, names) {
  EXPECT_EQ(lines(opmode_board_names, opmode_board_names + 6),
            lines({"unknown", "tk10_mfg", "tk10_eval", "tk20", "tk30", "tk40"}));
  EXPECT_EQ(lines(opmode_io_names, opmode_io_names + 2), lines({"none", "dio2x1r"}));
  EXPECT_EQ(mode(), "tk10_eval none 2") << "at the start";
}

// ---------------------------------------------------------------------------------------------- discovery

TEST_F(opmode_test, a_record_that_was_not_accepted_does_not_count) {
  give("P2", "sp4");
  g_product_config_avail = 0;
  EXPECT_EQ(discovered(), "tk10_eval none 2");
}

TEST_F(opmode_test, board_comes_from_the_first_two_characters_of_the_product_id) {
  const std::pair<const char*, const char*> boards[] = {
      {"P1", "tk10_eval"}, {"P9", "tk10_eval"}, {"P0", "tk10_mfg"}, {"P7", "tk10_mfg"},
      {"P2", "tk20"},      {"P3", "tk30"},      {"P8", "tk40"}};
  for (const auto& [prefix, board] : boards) {
    for (const char* rest : {"", "x", "01"}) {
      give(std::string(prefix) + rest);
      EXPECT_EQ(discovered(), std::string(board) + " none 2") << prefix << rest;
    }
  }
}

TEST_F(opmode_test, any_other_product_id_is_an_unknown_board_without_ports) {
  for (const char* id : {"", "P", "P4", "P5", "P6", "p2", "2P", "Q2", " P2", "\xFF\xFF\xFF\xFF"}) {
    give(id);
    EXPECT_EQ(discovered(), "unknown none 0") << id;
  }
}

TEST_F(opmode_test, missing_product_id_is_the_default_board) {
  give(absent);
  EXPECT_EQ(discovered(), "tk10_eval none 2");
  give(absent, "dio2x1r,sp5");
  EXPECT_EQ(discovered(), "tk10_eval dio2x1r 5");
}

TEST_F(opmode_test, io_option_must_be_a_whole_item) {
  const std::pair<const char*, const char*> options[] = {{"dio2x1r", "dio2x1r"},
                                                         {"a,dio2x1r", "dio2x1r"},
                                                         {"dio2x1r,b", "dio2x1r"},
                                                         {"a,dio2x1r,b", "dio2x1r"},
                                                         {",dio2x1r,", "dio2x1r"},
                                                         {"xdio2x1r", "none"},
                                                         {"dio2x1rx", "none"},
                                                         {" dio2x1r", "none"},
                                                         {"dio2x1r ", "none"},
                                                         {"xdio2x1r,dio2x1r", "none"},
                                                         {"dio2x1rx,dio2x1r", "none"},
                                                         {"dio2x1", "none"},
                                                         {"DIO2X1R", "none"},
                                                         {"", "none"},
                                                         {",", "none"}};
  for (const auto& [hwcfg, io] : options) {
    give("P2", hwcfg);
    EXPECT_EQ(discovered(), std::string("tk20 ") + io + " 2") << hwcfg;
  }
}

TEST_F(opmode_test, port_count_comes_from_the_first_sp) {
  const std::pair<const char*, unsigned> counts[] = {{"sp4", 4},
                                                     {"sp0", 0},
                                                     {"sp1,x", 1},
                                                     {"x,sp8", 8},
                                                     {"sp32", 32},
                                                     {"sp33", 2},
                                                     {"sp", 2},
                                                     {"sp,sp4", 2},
                                                     {"spx", 2},
                                                     {"rsp4", 2},
                                                     {"rsp4,sp8", 2},
                                                     {"sp4x", 2},
                                                     {"sp4 ", 2},
                                                     {"sp04", 4},
                                                     {"sp00000032", 32},
                                                     {"sp4294967300", 2},
                                                     {"sp99999999999999999999", 2},
                                                     {"sp4,sp5", 4},
                                                     {"sp33,sp4", 2},
                                                     {"SP4", 2},
                                                     {"sp 4", 4},
                                                     {"sp+4", 4},
                                                     {"sp\n7", 7},
                                                     {"sp\t 8,x", 8},
                                                     {"sp-1", 2},
                                                     {"sp-4294967292", 4},
                                                     {"sp+", 2},
                                                     {"sp 4 ", 2},
                                                     {"", 2},
                                                     {"sp4,", 4}};
  for (const auto& [hwcfg, count] : counts) {
    give("P2", hwcfg);
    EXPECT_EQ(discovered(), "tk20 none " + std::to_string(count)) << hwcfg;
  }
}

TEST_F(opmode_test, hardware_configuration_also_counts_on_an_unknown_board) {
  give("XX", "sp4,dio2x1r");
  EXPECT_EQ(discovered(), "unknown dio2x1r 4");
  give("XX", "rsp4");
  EXPECT_EQ(discovered(), "unknown none 0");
}

// The longest text ends where the field does, and what follows in memory is not part of it.
TEST_F(opmode_test, hardware_configuration_that_fills_its_field) {
  give("P2", std::string(56, 'a') + ",dio2x1r");
  EXPECT_EQ(discovered(), "tk20 dio2x1r 2");
  give("P2", std::string(60, 'a') + ",sp3");
  EXPECT_EQ(discovered(), "tk20 none 3");
  give("P2", std::string("sp4\0,dio2x1r", 12));
  EXPECT_EQ(discovered(), "tk20 none 4") << "a zero byte ends it";
}

// ---------------------------------------------------------------------------------------------- setters

// White space and a sign are part of a number here as in all the device's decimal numbers.
TEST_F(opmode_test, number_of_serial_ports_with_a_sign_or_a_blank) {
  const std::pair<const char*, unsigned> accepted[] = {{"+4", 4}, {" 5", 5},          {"\n7", 7},
                                                       {"-0", 0}, {"-4294967290", 6}, {"+32", 32}};
  for (const auto& [text, count] : accepted) {
    EXPECT_TRUE(opmode_num_serports_set(text)) << text;
    EXPECT_EQ(g_opmode_num_serports, count) << text;
  }
  for (const char* text : {"-1", "- 4", "+-4", "4 ", "+", " ", ""})
    EXPECT_FALSE(opmode_num_serports_set(text)) << text;
  EXPECT_EQ(g_opmode_num_serports, 32U);
}

TEST_F(opmode_test, trace) {
  log_level = level_trace;
  opmode_num_serports_set("x");
  opmode_board_set("x");
  opmode_io_set("x");
  EXPECT_EQ(root.printed(),
            "TRACE: opmode_num_serports_set:\nTRACE: opmode_board_set:\nTRACE: opmode_io_set:\n");
  opmode_discover();
  EXPECT_EQ(root.printed(), "TRACE: opmode_discover:\nTRACE: gpiolib_init:\nTRACE: gpiolib_unexport_all:\n");
}

}  // namespace
