// What start-up makes of the list of partitions where no command shows it.
#include "mtd/startup.h"

#include "loader_test.h"

namespace {

class mtd_init_test : public loader_test {};

TEST_F(mtd_init_test, names_are_read_even_when_nothing_is_split) {
  root.write_file("/proc/mtd", "mtd3: 00001000 00000100 \"kernel_1\"\n");
  mtd_init();
  EXPECT_STREQ(mtd_config_table[5].dev_name, "/dev/mtd3");
}

}  // namespace
