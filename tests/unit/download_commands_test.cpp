// The words of the download commands that no line of the prompt is long enough for: names that do not fit a
// path.
#include "commands/command.h"
#include "commands/network_download.h"
#include "commands/serial_download.h"
#include "ethernet.h"
#include "loader_test.h"

namespace {

constexpr size_t longest_in_tmp = 250;  // with "/tmp/" and its end 256 bytes
constexpr size_t longest_with_path = 255;

class download_commands_test : public loader_test {
 protected:
  ~download_commands_test() override { ntokens = 0; }

  // What the command says to these words.
  std::string say(void (*command)(), std::vector<std::string> words) {
    ntokens = 0;
    for (std::string& word : words)
      tokens[ntokens++] = word.data();
    log_level = 4;
    command();
    return root.printed();
  }
  static std::string name_of(size_t length) { return std::string(length, 'n'); }
  static std::string path_of(size_t length) { return "/" + std::string(length - 1, 'n'); }
};

TEST_F(download_commands_test, a_serial_download_refuses_names_that_do_not_fit) {
  for (const std::string& name : {name_of(longest_in_tmp + 1), path_of(longest_with_path + 1)}) {
    EXPECT_EQ(say(cmd_file_download_serial, {name}), "ERROR: Invalid file name or path '" + name + "'\n");
  }
  // A name that fits leaves only the port to be refused.
  for (const std::string& name : {name_of(longest_in_tmp), path_of(longest_with_path)}) {
    EXPECT_EQ(say(cmd_file_download_serial, {name, "3"}),
              "ERROR: Invalid serial port '3', range is 0 to 2\n");
  }
}

TEST_F(download_commands_test, a_network_download_refuses_local_names_that_do_not_fit) {
  for (const std::string& name : {name_of(longest_in_tmp + 1), path_of(longest_with_path + 1)}) {
    const std::string refusal = "ERROR: Invalid local file name '" + name + "'\n";
    EXPECT_EQ(say(cmd_file_download_network, {"10.0.0.1", "file", name}), refusal);
    EXPECT_EQ(say(cmd_file_download_network, {"10.0.0.1", name}), refusal)
        << "it would be the local name, too";
  }
  EXPECT_EQ(root.sequence(), lines()) << "the network is not started";
}

TEST_F(download_commands_test, a_network_download_takes_the_longest_names) {
  root.remove(ETHERNET_FILE);  // there is no card, which ends the command soon
  const std::string name = name_of(longest_in_tmp);
  EXPECT_TRUE(say(cmd_file_download_network, {"10.0.0.1", name})
                  .starts_with("INFO: cmd_file_download_network: ip_addr=10.0.0.1 file_remote=" + name +
                               " file_local=/tmp/" + name + "\n"));
}

}  // namespace
