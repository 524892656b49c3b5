// The command tree where no command shows it: entries that open tables, entries that are kept without a
// command behind them, and what handlers share.
#include "commands/command.h"
#include "cli/command_tree.h"

#include "commands/bootenv.h"
#include "commands/builtins.h"
#include "commands/console.h"
#include "commands/flash.h"
#include "commands/flash_analyze.h"
#include "commands/gpiolib.h"
#include "commands/network.h"
#include "commands/network_download.h"
#include "commands/opmode.h"
#include "commands/product.h"
#include "commands/serial_download.h"
#include "loader_test.h"

namespace {

class command_test : public loader_test {
 protected:
  void TearDown() override {
    ntokens = 0;
    loader_test::TearDown();
  }
};

// ----------------------------------------------------------------------------------------------------- words

TEST_F(command_test, words_are_taken_from_the_front_until_none_is_left) {
  char first[] = "first";
  char second[] = "second";
  char third[] = "third";
  tokens[0] = first;
  tokens[1] = second;
  tokens[2] = third;
  ntokens = 3;
  EXPECT_EQ(token_shift(), first);
  EXPECT_EQ(ntokens, 2);
  EXPECT_EQ(tokens[0], second);
  EXPECT_EQ(tokens[1], third);
  EXPECT_EQ(token_shift(), second);
  EXPECT_EQ(token_shift(), third);
  EXPECT_EQ(token_shift(), nullptr);
  EXPECT_EQ(ntokens, 0);
}

// Behind the last word of a full table stands nothing that may be read.
TEST_F(command_test, words_of_a_full_table_move_to_the_front) {
  std::vector<std::string> words;
  for (int32_t i = 0; i < tokens_max; ++i) {
    words.push_back("word-" + std::to_string(i));
  }
  for (int32_t i = 0; i < tokens_max; ++i) {
    tokens[i] = words[static_cast<size_t>(i)].data();
  }
  ntokens = tokens_max;
  for (std::string& word : words) {
    EXPECT_EQ(token_shift(), word.data());
  }
  EXPECT_EQ(token_shift(), nullptr);
}

// -------------------------------------------------------------------------------------------------- messages

TEST_F(command_test, a_signal_without_its_state_is_an_incomplete_command) {
  helper_incomplete_command();
  const std::string incomplete = root.printed();
  char word[] = "FAULT_LED";
  for (const int count : {0, 1}) {
    tokens[0] = word;
    ntokens = count;
    cmd_gpiolib_set();
    EXPECT_EQ(root.printed(), incomplete) << count;
  }
}

TEST_F(command_test, a_handler_tells_its_name_first) {
  struct {
    const char* name;
    void (*handler)();
  } constexpr handlers[] = {
      {"cmd_set_bootenv_bootbank", cmd_set_bootenv_bootbank},
      {"cmd_set_bootenv_bootcmd", cmd_set_bootenv_bootcmd},
      {"cmd_set_bootenv_bootdelay", cmd_set_bootenv_bootdelay},
      {"cmd_set_bootenv_silent", cmd_set_bootenv_silent},
      {"cmd_show_bootenv", cmd_show_bootenv},
      {"cmd_version", cmd_version},
      {"cmd_verbose", cmd_verbose},
      {"cmd_affirm", cmd_affirm},
      {"cmd_show_system", cmd_show_system},
      {"cmd_show_klog", cmd_show_klog},
      {"cmd_set_console", cmd_set_console},
      {"cmd_show_console", cmd_show_console},
      {"cmd_flash_info", cmd_flash_info},
      {"cmd_flash_analyze", cmd_flash_analyze},
      {"cmd_gpiolib_info", cmd_gpiolib_info},
      {"cmd_gpiolib_set", cmd_gpiolib_set},
      {"cmd_network_ethernet_link", cmd_network_ethernet_link},
      {"cmd_network_ethernet_start", cmd_network_ethernet_start},
      {"cmd_network_ethernet_stop", cmd_network_ethernet_stop},
      {"cmd_network_info", cmd_network_info},
      {"cmd_network_ping", cmd_network_ping},
      {"cmd_flash_download_network", cmd_flash_download_network},
      {"cmd_file_download_network", cmd_file_download_network},
      {"cmd_set_opmode_board", cmd_set_opmode_board},
      {"cmd_set_opmode_io", cmd_set_opmode_io},
      {"cmd_set_opmode_serports", cmd_set_opmode_serports},
      {"cmd_show_opmode", cmd_show_opmode},
      {"cmd_show_product", cmd_show_product},
      {"cmd_show_oem", cmd_show_oem},
      {"cmd_file_download_serial", cmd_file_download_serial},
  };
  for (const auto& [name, handler] : handlers) {
    log_level = 7;
    handler();
    const std::string trace = "TRACE: " + std::string(name) + ":\n";
    EXPECT_EQ(root.printed().substr(0, trace.size()), trace);
  }
}

TEST_F(command_test, show_bootenv_takes_the_item_that_may_be_named) {
  char item[] = "bootbank";
  char surplus[] = "bootdelay";
  tokens[0] = item;
  tokens[1] = surplus;
  ntokens = 2;
  cmd_show_bootenv();
  EXPECT_EQ(ntokens, 1);
  EXPECT_EQ(token_first(), surplus);
}

TEST_F(command_test, an_entry_without_a_command_would_say_so) {
  cmd_not_yet_implemented();
  EXPECT_EQ(root.printed(), "ERROR: This function has not yet been implemented!\n");
  log_level = level_note;
  cmd_not_yet_implemented();
  EXPECT_EQ(root.printed(), "");
}

// -------------------------------------------------------------------------------------------------- the tree

// Path, alias, usage and help of every entry that is no command, table by table.
std::string rows_without_command(const std::string& prefix, const command_record* table, int32_t count) {
  std::string rows;
  std::string below;
  for (const command_record* entry = table; entry != table + count; ++entry) {
    const std::string path = prefix + entry->name;
    if (entry->handler == nullptr || entry->handler == cmd_not_yet_implemented) {
      rows += path + "|" + entry->alias + "|" + entry->usage + "|" + entry->help + "\n";
    }
    if (entry->handler == nullptr) {
      below += rows_without_command(path + " ", entry->subtable, entry->subtable_count);
    }
  }
  return rows + below;
}

TEST_F(command_test, entries_without_a_command_keep_their_texts) {
  EXPECT_EQ(rows_without_command("", commands_top, commands_top_count), R"(
file||file |Execute a file command
flash||flash |Execute a flash command
gpiolib||gpiolib |Execute a gpiolib command
network||network |Execute a network command
resetcpu||[<id>] [<type> [<ms>]]|Reset CPU (all or a specific <id>) with a specific reset type after <ms> delay
resetext||[<id>] [<ms>]|Strobe the external reset line (all or a specific line <id>) with <ms> hold time
serial||serial |Execute a serial command
set||set |Execute a set command
show||show |Execute a show command
boot|||Boot kernel with current autoboot configuration
bootflash|bf|[1 | 2]|Boot kernel from flash (current or specific bank)
bootnet|bn|[ip <addr> | mac <addr> [<filename>]]|Boot kernel from network (from configured or specific server and filename)
mcmp||[b | w | l] <addr1> <addr2> [<count>]|Memory compare (byte, word, or long). Default: compare one location of int size
mc||[b | w | l] <source> <dest> [<count>]|Memory copy (byte, word, or long). Default: copy one location of int size
md||[b | w | l] <addr> [<count>]|Memory display (byte, word, or long) starting at <addr>. Default: display one location of int size
mfind||[b | w | l] <addr1> <data> [<count>]|Memory find (byte, word, or long). Default: search one location of int size
mm||[b | w | l] <addr> <data> [<count>]|Memory modify (byte, word, or long) starting at <addr>. Default: modify one location of int size
file download||file download |Execute a file download command
file upload||file upload |Execute a file upload command
flash download||flash download |Execute a flash download command
flash erase||[serial|nand] <offset> <size>|Erase a specific flash device
flash nandbiterr||<offset>|Set a bit error at <offset>
flash nanddump||<offset>|Dump the entire NAND page (data + extra) where <offset> is located
flash nandmark||<offset>|Mark the NAND block as bad, where <offset> is located
flash nandscrub|||Scrub NAND device, erasing blocks marked as bad
flash protecthw||[serial|nand] <on|off> <offset> <size>|Turn hardware write protection on or off on a specific flash device
flash protectsw||[serial|nand] <on|off> <offset> <size>|Turn software write protection on or off for a specific flash device
flash read||[serial|nand] <dest> <offset> <size>|Read data from a specific flash device
flash set||[serial|nand]|Show or set the default flash device
flash write||[serial|nand] <source> <offset> <size>|Write data to a specific flash device
network ethernet||network ethernet |Execute an ethernet network command
set base||hex|dec|bin|oct|Set base for numerical entry
set bootenv||set bootenv |Set boot environment configuration item
set opmode||set opmode |Set operational mode item
set bootenv baudrate|||
set bootenv bootargs||'<string>'|clear|Set/Clear kernel command line to pass to kernel from bootloader
set bootenv ipaddr||<ip_addr>|clear|Set/Clear local IP Address used by bootloader
set bootenv serverip||<ip_addr>|clear|Set/Clear remote tftp server IP Address used by bootloader
set bootenv autoload|||
set bootenv gatewayip||<ip_addr>|clear|Set/Clear gateway IP Address used by bootloader
set bootenv netmask||<ip_mask>|clear|Set/Clear IP netmask used by bootloader
set bootenv hostname||<hostname>|clear|Set/Clear local host name used by bootloader
set bootenv bootfile|||
set bootenv loadaddr|||
set bootenv preboot|||
set bootenv bootfailcountreset|||Reset current boot fail count
set bootenv console||<port>|Set console serial port
set bootenv dns||<IP Address> | erase|Set DNS IP Address (for network autoboot or CLI commands)
set bootenv filename||<Filename> | erase|Set/Erase filename (for network autoboot or CLI commands)
set bootenv filetype||srec | coff | elf | image|Set file type (for network autoboot or CLI commands)
set bootenv maxbootfc||<count> | 0| off|Configure maximum boot fail count
set bootenv netcon||on | off|Enable/Disable network console access
set bootenv safebankreset|||Reset current safe bank
set bootenv watchdog||on | off|Set Watchdog timer state
show base|||Show base for numerical entry
show filename|||Show filename for command defaults
show filetype|||Show file type for command defaults
show platform|||Show hardware platform summary
show syslog|||Show the non-volatile system log
)" + 1);
}

int entries_of(const command_record* table, int32_t count, const std::string& path) {
  if (path.empty()) return count;
  const std::string word = path.substr(0, path.find(' '));
  const std::string rest = path.size() > word.size() ? path.substr(word.size() + 1) : "";
  for (const command_record* entry = table; entry != table + count; ++entry) {
    if (entry->name == word && entry->handler == nullptr) {
      return entries_of(entry->subtable, entry->subtable_count, rest);
    }
  }
  return -1;
}

TEST_F(command_test, tables_have_their_number_of_entries) {
  const std::pair<const char*, int> tables[] = {
      {"", 24},       {"file", 2},    {"file download", 2},    {"file upload", 0}, {"flash", 15},
      {"gpiolib", 2}, {"network", 3}, {"network ethernet", 3}, {"serial", 0},      {"flash download", 2},
      {"set", 4},     {"show", 13},   {"set bootenv", 25},     {"set opmode", 3},
  };
  for (const auto& [path, count] : tables)
    EXPECT_EQ(entries_of(commands_top, commands_top_count, path), count) << path;
}

}  // namespace
