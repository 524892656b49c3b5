// TFTP and ping: command lines, what their tools say, and when the interface is started.
#include "net/transfer.h"

#include "net/address.h"
#include "net_test.h"

namespace {

constexpr uint8_t server[4] = {192, 168, 1, 9};

class tftp_test : public net_test {
 protected:
  tftp_test() { net_if_started[0] = 1; }

  std::string composed(const char* remote, const char* local) {
    root.forget();
    EXPECT_TRUE(net_tftp_get(server, remote, local));
    EXPECT_EQ(root.shell_lines().size(), 1U);
    return root.shell_lines().at(0);
  }

  std::string composed_stream(const char* remote) {
    long_command_line line;
    EXPECT_TRUE(net_tftp_compose_stream(line, server, remote));
    return line.text();
  }
};

TEST_F(tftp_test, a_local_path_is_given_to_the_client) {
  EXPECT_EQ(composed("image.rom", "/tmp/image.rom"),
            "tftp -g -l /tmp/image.rom -r \"image.rom\" 192.168.1.9 2>&1");
  EXPECT_EQ(root.ran(), lines({"tftp -g -l /tmp/image.rom -r image.rom 192.168.1.9"}));
}

TEST_F(tftp_test, without_one_two_blanks_stand_between_the_options) {
  EXPECT_EQ(composed("image.rom", ""), "tftp -g  -r \"image.rom\" 192.168.1.9 2>&1");
  EXPECT_EQ(composed("image.rom", nullptr), "tftp -g  -r \"image.rom\" 192.168.1.9 2>&1");
}

TEST_F(tftp_test, the_messages_of_a_transfer) {
  EXPECT_TRUE(net_tftp_get(server, "image.rom", "/tmp/x"));
  EXPECT_EQ(root.printed(), "NOTE: Using interface 'eth0'\nRetrieving file 'image.rom' via tftp...\n");
  log_level = level_trace;
  EXPECT_TRUE(net_tftp_get(server, "image.rom", nullptr));
  EXPECT_EQ(
      root.printed(),
      "TRACE: net_tftp_get:\n"
      "NOTE: Using interface 'eth0'\n"
      "TRACE: net_start:\n"
      "VERBOSE: net_tftp_get: ip_addr=192.168.1.9 file_remote=image.rom file_local=\n"
      "Retrieving file 'image.rom' via tftp...\n"
      "TRACE: exec_system_cmd_print_with_match: print=' ' dont_print='' notes=true\n"
      "VERBOSE: exec_system_cmd_print_with_match: fork popen(tftp -g  -r \"image.rom\" 192.168.1.9 2>&1)\n");
}

TEST_F(tftp_test, an_interface_that_is_not_started_is_started_by_dhcp) {
  net_if_started[0] = 0;
  EXPECT_TRUE(net_tftp_get(server, "a", nullptr));
  EXPECT_EQ(net_if_started[0], 1);
  EXPECT_TRUE(root.printed().starts_with("NOTE: Using interface 'eth0'\nNOTE: Using DHCP\n"));
  EXPECT_EQ(root.shell_lines().back(), "tftp -g  -r \"a\" 192.168.1.9 2>&1");
}

TEST_F(tftp_test, names_of_256_special_characters_fit) {
  const std::string name(256, '"');
  const std::string local = "/tmp/" + std::string(251, ';');
  composed(name.c_str(), local.c_str());
  EXPECT_EQ(root.events("run").at(0).fields,
            lines({"default", "tftp", "-g", "-l", local, "-r", name, "192.168.1.9"}));
}

TEST_F(tftp_test, longer_names_are_refused_and_nothing_is_run) {
  const std::string name(257, 'x');
  const std::string refusal = "ERROR: File name too long, limit is 256 characters\n";
  EXPECT_FALSE(net_tftp_get(server, name.c_str(), nullptr));
  EXPECT_FALSE(net_tftp_get(server, "a", name.c_str()));
  long_command_line line;
  EXPECT_FALSE(net_tftp_compose_stream(line, server, name.c_str()));
  const std::string begin = "NOTE: Using interface 'eth0'\n";
  EXPECT_EQ(root.printed(), begin + refusal + begin + refusal + refusal);
  EXPECT_EQ(root.shell_lines(), lines());
}

TEST_F(tftp_test, the_line_that_streams_a_file_to_standard_output) {
  EXPECT_EQ(composed_stream("image.rom"), "tftp -g -r \"image.rom\" -l - 192.168.1.9");
  EXPECT_EQ(composed_stream("a\"$`\\;&"), "tftp -g -r \"a\\\"\\$\\`\\\\;&\" -l - 192.168.1.9");
  EXPECT_EQ(composed_stream(std::string(256, '$').c_str()).size(),
            512 + strlen("tftp -g -r \"\" -l - 192.168.1.9"));
}

// ---------------------------------------------------------------------------------------------- ping

class ping_test : public net_test {};

TEST_F(ping_test, long_lines_and_tools_that_die_do_not_matter) {
  const std::string long_line(1000, 'x');
  root.answer("ping", {.signal_number = 9, .out = long_line + "\nend"});
  EXPECT_TRUE(net_ping(0, server));
  EXPECT_EQ(root.printed(), long_line + "\nend");
}

TEST_F(ping_test, a_tool_that_cannot_be_started) {
  log_level = level_trace;
  root.fail_call("posix_spawn", {.error = EAGAIN});
  EXPECT_FALSE(net_ping(0, server));
  EXPECT_EQ(root.printed(),
            "TRACE: net_ping:\n"
            "VERBOSE: net_ping: popen(/bin/ping -I eth0 -c 4 -W 2 192.168.1.9 2>&1)\n"
            "ERROR: net_ping: popen(/bin/ping -I eth0 -c 4 -W 2 192.168.1.9 2>&1) "
            "error(Resource temporarily unavailable)\n");
}

TEST_F(ping_test, a_wrong_interface_is_an_error) {
  EXPECT_FALSE(net_ping(1, server));
  EXPECT_FALSE(net_ping(-1, server));
  EXPECT_EQ(root.printed(), "ERROR: Invalid interface number '1'\nERROR: Invalid interface number '-1'\n");
  EXPECT_EQ(root.shell_lines(), lines());
}

}  // namespace
