// Files made from buffers and streams.
#include "util/file_create.h"

#include <sys/mount.h>

#include "loader_test.h"

namespace {

constexpr char path[] = "/tmp/file";

// A file system with hardly any room, at /mnt.
class tiny_file_system {
 public:
  explicit tiny_file_system(const char* size) {
    EXPECT_EQ(mount("tmpfs", "/mnt", "tmpfs", 0, (std::string("size=") + size).c_str()), 0);
  }
  ~tiny_file_system() { umount2("/mnt", MNT_DETACH); }
  tiny_file_system(const tiny_file_system&) = delete;
  tiny_file_system& operator=(const tiny_file_system&) = delete;
};

// --------------------------------------------------------------------------------------------- from a buffer

class file_create_from_buffer_test : public loader_test {};

TEST_F(file_create_from_buffer_test, writes_the_buffer_and_nothing_else) {
  const std::string bytes = noise(5000);
  EXPECT_EQ(file_create_from_buffer(path, bytes.data(), bytes.size()), 1);
  EXPECT_EQ(root.read_file(path), bytes);
  EXPECT_EQ(root.printed(), "");
}

TEST_F(file_create_from_buffer_test, a_longer_file_is_replaced) {
  root.write_file(path, "something much longer");
  EXPECT_EQ(file_create_from_buffer(path, "short", 5), 1);
  EXPECT_EQ(root.read_file(path), "short");
  EXPECT_EQ(file_create_from_buffer(path, "", 0), 1);
  EXPECT_EQ(root.read_file(path), "");
}

TEST_F(file_create_from_buffer_test, the_buffer_goes_out_in_one_write) {
  root.trace(path);
  EXPECT_EQ(file_create_from_buffer(path, noise(100000).data(), 100000), 1);
  EXPECT_EQ(root.sequence(), lines({"write /tmp/file 100000"}));
}

TEST_F(file_create_from_buffer_test, traces_path_and_length) {
  log_level = 7;
  EXPECT_EQ(file_create_from_buffer(path, "12345", 5), 1);
  EXPECT_EQ(root.printed(), "TRACE: file_create_from_buffer: filename=/tmp/file buf_len=5\n");
}

TEST_F(file_create_from_buffer_test, a_path_that_cannot_be_created_is_reported) {
  EXPECT_EQ(file_create_from_buffer("/nowhere/file", "x", 1), 0);
  EXPECT_EQ(root.printed(), "ERROR: open(/nowhere/file) error(No such file or directory)\n");
  EXPECT_EQ(file_create_from_buffer("/tmp", "x", 1), 0);
  EXPECT_EQ(root.printed(), "ERROR: open(/tmp) error(Is a directory)\n");
}

TEST_F(file_create_from_buffer_test, a_failed_write_is_reported) {
  root.fail_call("write", {.match = path, .error = EIO});
  EXPECT_EQ(file_create_from_buffer(path, "x", 1), 0);
  EXPECT_EQ(root.printed(), "ERROR: write(/tmp/file) error(Input/output error)\n");
}

TEST_F(file_create_from_buffer_test, a_full_file_system_makes_a_short_write_which_is_an_error) {
  const tiny_file_system full("8k");
  EXPECT_EQ(file_create_from_buffer("/mnt/file", noise(20000).data(), 20000), 0);
  EXPECT_EQ(root.printed(), "ERROR: write(/mnt/file) error(No space left on device)\n");
  EXPECT_EQ(root.read_file("/mnt/file"), noise(20000).substr(0, 8192)) << "what was written stays";
}

TEST_F(file_create_from_buffer_test, tools_do_not_inherit_the_file) {
  const named_pipe file(path);
  const std::string bytes = noise(200000);  // more than a pipe holds
  EXPECT_TRUE(is_kept_from_tools(
      path, file.fd(), [&] { file_create_from_buffer(path, bytes.data(), bytes.size()); },
      [&] { file.take(bytes.size()); }));
}

// --------------------------------------------------------------------------------------------- from a stream

class file_create_from_fd_test : public loader_test {};

TEST_F(file_create_from_fd_test, header_goes_first_and_counts_for_nothing) {
  const std::string header = noise(256, 7);
  const std::string bytes = noise(5000);
  sender source(bytes + "rest");
  uint64_t checksum = 0;
  EXPECT_EQ(file_create_from_fd(path, source.fd(), octets(header), 5000, &checksum), 1);
  EXPECT_EQ(root.read_file(path), header + bytes);
  EXPECT_EQ(checksum, 0xFFFFFFFF00000000 | plain_checksum(bytes));
  EXPECT_EQ(source.rest(), "rest");
  EXPECT_EQ(root.printed(), "");
}

TEST_F(file_create_from_fd_test, header_and_checksum_may_be_left_out) {
  const sender source("bytes");
  root.write_file(path, "something much longer");
  EXPECT_EQ(file_create_from_fd(path, source.fd(), nullptr, 5, nullptr), 1);
  EXPECT_EQ(root.read_file(path), "bytes");
}

TEST_F(file_create_from_fd_test, checksums_cross_the_borders_of_pieces) {
  const std::string bytes = noise(4096 + 1024 + 63);
  const sender source(bytes);
  root.fail_call("read", {.match = "pipe", .error = 0, .result = 333});
  uint64_t checksum = 0;
  EXPECT_EQ(file_create_from_fd(path, source.fd(), nullptr, static_cast<uint32_t>(bytes.size()), &checksum),
            1);
  EXPECT_EQ(static_cast<uint32_t>(checksum), plain_checksum(bytes));
  EXPECT_EQ(root.read_file(path), bytes);
}

TEST_F(file_create_from_fd_test, pieces_are_read_by_the_ladder_and_written_at_once) {
  const sender source(noise(4096 + 300));
  root.trace(path);
  root.trace("pipe");
  root.trace("select");
  EXPECT_EQ(file_create_from_fd(path, source.fd(), nullptr, 4096 + 300, nullptr), 1);
  lines expected = {"select 3", "write /tmp/file 4096", "write /tmp/file 256", "select 3",
                    "write /tmp/file 32"};
  for (int single = 0; single < 300 - 256 - 32; single++) {
    expected.insert(expected.end(), {"select 3", "write /tmp/file 1"});
  }
  EXPECT_EQ(root.sequence(), expected);
}

TEST_F(file_create_from_fd_test, nothing_to_receive_makes_a_file_of_the_header) {
  const std::string header = noise(256, 7);
  uint64_t checksum = 0;
  EXPECT_EQ(file_create_from_fd(path, -1, octets(header), 0, &checksum), 1);
  EXPECT_EQ(root.read_file(path), header);
  EXPECT_EQ(checksum, 0xFFFFFFFFFFFFFFFF);
}

TEST_F(file_create_from_fd_test, traces_path_and_total_and_counts_at_the_end) {
  const sender source("12345");
  log_level = 7;
  EXPECT_EQ(file_create_from_fd(path, source.fd(), nullptr, 5, nullptr), 1);
  EXPECT_EQ(root.printed(),
            "TRACE: file_create_from_fd: filename=/tmp/file buf_len=5\n"
            "VERBOSE: file_create_from_fd received 5 bytes\n");
}

TEST_F(file_create_from_fd_test, a_path_that_cannot_be_created_is_reported_and_nothing_is_read) {
  sender source("bytes");
  EXPECT_EQ(file_create_from_fd("/nowhere/file", source.fd(), nullptr, 5, nullptr), 0);
  EXPECT_EQ(root.printed(), "ERROR: open(/nowhere/file) error(No such file or directory)\n");
  EXPECT_EQ(source.rest(), "bytes");
}

TEST_F(file_create_from_fd_test, a_header_written_short_is_reported_with_the_path) {
  const sender source("bytes");
  root.fail_call("write", {.match = path, .error = 0, .result = 100});
  EXPECT_EQ(file_create_from_fd(path, source.fd(), octets(noise(256)), 5, nullptr), 0);
  EXPECT_EQ(root.printed(), "ERROR: write(/tmp/file) error(No space left on device)\n");
}

TEST_F(file_create_from_fd_test, a_sender_that_stops_fails_however_much_had_arrived) {
  const sender source(noise(5000));
  root.fail_call("select", {.error = 0, .result = 0, .after = 5});
  uint64_t checksum = 1;
  EXPECT_EQ(file_create_from_fd(path, source.fd(), nullptr, 5000, &checksum), 0);
  EXPECT_EQ(root.printed(), "ERROR: Failed to read firmware image [Connection timed out]\n");
  EXPECT_GT(root.read_file(path).size(), 4096U) << "what had arrived stays";
  EXPECT_EQ(checksum, 0U);
}

TEST_F(file_create_from_fd_test, a_failed_wait_read_or_an_early_end_fails) {
  sender source(noise(100));
  root.fail_call("select", {.error = ENOMEM, .times = 1});
  EXPECT_EQ(file_create_from_fd(path, source.fd(), nullptr, 100, nullptr), 0);
  EXPECT_EQ(root.printed(), "ERROR: Failed to read firmware image [Cannot allocate memory]\n");
  root.fail_call("read", {.match = "pipe", .error = EIO, .times = 1});
  EXPECT_EQ(file_create_from_fd(path, source.fd(), nullptr, 100, nullptr), 0);
  EXPECT_EQ(root.printed(), "ERROR: Failed to read firmware image [Input/output error]\n");
  source.hang_up();
  EXPECT_EQ(file_create_from_fd(path, source.fd(), nullptr, 101, nullptr), 0);
  EXPECT_EQ(root.printed(), "ERROR: Failed to read firmware image [No data available]\n");
}

TEST_F(file_create_from_fd_test, a_piece_written_short_fails) {
  const sender source(noise(20000));
  const tiny_file_system full("8k");
  EXPECT_EQ(file_create_from_fd("/mnt/file", source.fd(), octets(noise(256, 7)), 20000, nullptr), 0);
  EXPECT_EQ(root.printed(), "ERROR: Failed to write firmware image\n");
  EXPECT_EQ(root.read_file("/mnt/file"), noise(256, 7) + noise(20000).substr(0, 8192 - 256));
}

TEST_F(file_create_from_fd_test, tools_do_not_inherit_the_file) {
  const sender source("");
  EXPECT_TRUE(is_kept_from_tools(
      path, -1, [&] { file_create_from_fd(path, source.fd(), nullptr, 1, nullptr); },
      [&] { source.send("x"); }));
}

TEST_F(file_create_from_fd_test, a_length_beyond_31_bits_arrives_whole) {
  constexpr uint32_t length = 0x80000001;
  const endless_source source;
  root.make_sink("/tmp/sink");
  uint64_t checksum = 0;
  log_level = 6;
  EXPECT_EQ(file_create_from_fd("/tmp/sink", source.fd(), nullptr, length, &checksum), 1);
  EXPECT_EQ(root.printed(), "VERBOSE: file_create_from_fd received -2147483647 bytes\n");
  EXPECT_EQ(static_cast<uint32_t>(checksum), checksum_of_zeros);
}

}  // namespace
