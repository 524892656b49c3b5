// Raw flash: the exact order of tools and writes with and without protection, and every step failing.
#include "flash/erase.h"
#include "flash/read.h"
#include "flash/write.h"

#include <mtd/mtd-user.h>
#include <sys/ioctl.h>

#include "loader_test.h"

namespace {

constexpr char node[] = "/dev/mtd2";  // bootloader, 512 KiB
constexpr size_t node_size = 0x80000;
constexpr int serial = 0;
constexpr int nand = 1;
constexpr int mmc = 2;

const std::string unlock = "run /usr/sbin/flash_unlock /dev/mtd2";
const std::string lock = "run /usr/sbin/flash_lock /dev/mtd2 0 -1";
const std::string erase = "run /usr/sbin/flash_erase -q /dev/mtd2 0 0";

class raw_partition_test : public loader_test {
 protected:
  // The runner's report of a tool that ended with status 1.
  static std::string failed(const std::string& line) {
    return "ERROR: system(" + line + ") sys_rc=256 exitstatus=1\n";
  }
  std::string flash() const { return root.read_file(node); }
  static std::string erased_but(const std::string& begin) {
    return begin + std::string(node_size - begin.size(), '\xFF');
  }
};

const std::string unlock_failed = "ERROR: system(/usr/sbin/flash_unlock /dev/mtd2) sys_rc=256 exitstatus=1\n";
const std::string lock_failed =
    "ERROR: system(/usr/sbin/flash_lock /dev/mtd2 0 -1) sys_rc=256 exitstatus=1\n";
const std::string erase_failed =
    "ERROR: system(/usr/sbin/flash_erase -q /dev/mtd2 0 0) sys_rc=256 exitstatus=1\n";

// ---------------------------------------------------------------------------------------------- erase

class flash_erase_test : public raw_partition_test {};

TEST_F(flash_erase_test, only_one_means_protected) {
  for (const int protect : {0, 2, -1}) {
    root.forget();
    EXPECT_TRUE(flash_erase_whole_partition(node, serial, protect));
    EXPECT_EQ(root.sequence(), lines({erase})) << protect;
  }
}

TEST_F(flash_erase_test, the_flash_type_plays_no_part) {
  for (const int type : {nand, mmc, 99, -1}) {
    root.forget();
    EXPECT_TRUE(flash_erase_whole_partition(node, type, 0));
    EXPECT_EQ(root.sequence(), lines({erase})) << type;
  }
}

TEST_F(flash_erase_test, the_tool_is_quiet_below_progress) {
  for (log_level = 1; log_level <= 4; log_level++) {
    root.forget();
    EXPECT_TRUE(flash_erase_whole_partition(node, serial, 0));
    EXPECT_EQ(root.shell_lines(), lines({"/usr/sbin/flash_erase -q /dev/mtd2 0 0"}));
  }
  for (; log_level <= 7; log_level++) {
    root.forget();
    EXPECT_TRUE(flash_erase_whole_partition(node, serial, 0));
    EXPECT_EQ(root.shell_lines(), lines({"/usr/sbin/flash_erase /dev/mtd2 0 0"}));
  }
}

TEST_F(flash_erase_test, traces_its_name) {
  log_level = 7;
  EXPECT_TRUE(flash_erase_whole_partition(node, serial, 0));
  EXPECT_EQ(root.printed(),
            "TRACE: flash_erase_whole_partition:\nTRACE: exec_system_cmd:\n"
            "VERBOSE: system(/usr/sbin/flash_erase /dev/mtd2 0 0)\n");
}

// ---------------------------------------------------------------------------------------------- a file

class flash_write_file_test : public raw_partition_test {
 protected:
  flash_write_file_test() { root.write_file("/tmp/image", contents); }
  const std::string contents = noise(3000);
  const std::string copy = "run /usr/sbin/flashcp /tmp/image /dev/mtd2";
};

TEST_F(flash_write_file_test, serial_flash_is_erased_and_copied_to) {
  EXPECT_TRUE(flash_write_file(node, 0, serial, "/tmp/image"));
  EXPECT_EQ(root.sequence(), lines({erase, copy}));
  EXPECT_EQ(flash(), erased_but(contents));
  EXPECT_EQ(root.printed(), "");
}

TEST_F(flash_write_file_test, protected_flash_is_bracketed_twice) {
  EXPECT_TRUE(flash_write_file(node, 1, serial, "/tmp/image"));
  EXPECT_EQ(root.sequence(), lines({unlock, erase, lock, unlock, copy, lock}));
}

TEST_F(flash_write_file_test, nand_flash_has_its_own_tool) {
  EXPECT_TRUE(flash_write_file(node, 0, nand, "/tmp/image"));
  EXPECT_EQ(root.shell_lines(), lines({"/usr/sbin/flash_erase -q /dev/mtd2 0 0",
                                       "/usr/sbin/nandwrite -p -q /dev/mtd2 /tmp/image"}));
}

TEST_F(flash_write_file_test, the_copy_shows_progress_when_wanted_and_nandwrite_never) {
  log_level = 4;
  EXPECT_TRUE(flash_write_file(node, 0, serial, "/tmp/image"));
  EXPECT_EQ(root.shell_lines().back(), "/usr/sbin/flashcp /tmp/image /dev/mtd2");
  log_level = 5;
  EXPECT_TRUE(flash_write_file(node, 0, serial, "/tmp/image"));
  EXPECT_EQ(root.shell_lines().back(), "/usr/sbin/flashcp -v /tmp/image /dev/mtd2");
  EXPECT_TRUE(flash_write_file(node, 0, nand, "/tmp/image"));
  EXPECT_EQ(root.shell_lines().back(), "/usr/sbin/nandwrite -p -q /dev/mtd2 /tmp/image");
}

TEST_F(flash_write_file_test, other_types_are_refused_after_the_erase) {
  EXPECT_FALSE(flash_write_file(node, 1, mmc, "/tmp/image"));
  EXPECT_EQ(root.sequence(), lines({unlock, erase, lock}));
  EXPECT_EQ(root.printed(), "ERROR: flash_write_file: Unsupported flash type 2\n");
}

TEST_F(flash_write_file_test, failed_erase_copies_nothing) {
  root.answer("flash_erase", {.status = 1});
  EXPECT_FALSE(flash_write_file(node, 0, mmc, "/tmp/image"));
  EXPECT_EQ(root.sequence(), lines({erase}));
  EXPECT_EQ(root.printed(), erase_failed) << "the type is not looked at any more";
}

TEST_F(flash_write_file_test, failed_copy_still_locks) {
  root.answer("flashcp", {.status = 1});
  EXPECT_FALSE(flash_write_file(node, 1, serial, "/tmp/image"));
  EXPECT_EQ(root.sequence(), lines({unlock, erase, lock, unlock, copy, lock}));
  EXPECT_EQ(root.printed(), failed("/usr/sbin/flashcp /tmp/image /dev/mtd2"));
}

TEST_F(flash_write_file_test, second_unlock_failing_copies_nothing_and_locks) {
  root.answer("flash_unlock", {.times = 1, .acts = true});
  root.answer("flash_unlock", {.status = 1});
  EXPECT_FALSE(flash_write_file(node, 1, serial, "/tmp/image"));
  EXPECT_EQ(root.sequence(), lines({unlock, erase, lock, unlock, lock}));
}

TEST_F(flash_write_file_test, last_lock_failing_is_a_failure_though_the_file_was_copied) {
  root.answer("flash_lock", {.times = 1});
  root.answer("flash_lock", {.status = 1});
  EXPECT_FALSE(flash_write_file(node, 1, serial, "/tmp/image"));
  EXPECT_EQ(root.sequence(), lines({unlock, erase, lock, unlock, copy, lock}));
  EXPECT_EQ(flash(), erased_but(contents));
  EXPECT_EQ(root.printed(), lock_failed);
}

// ---------------------------------------------------------------------------------------------- a buffer

class flash_write_buffer_test : public raw_partition_test {
 protected:
  flash_write_buffer_test() { root.trace(node); }
  int write_bytes(const std::string& bytes, int protect = 0, int type = serial) {
    return flash_write_buffer(node, protect, type, octets(bytes), bytes.size());
  }
};

TEST_F(flash_write_buffer_test, chunks_of_1024_are_written_and_read_back) {
  const std::string bytes = noise(1025);
  EXPECT_EQ(write_bytes(bytes), 1);
  EXPECT_EQ(root.sequence(), lines({erase, "write /dev/mtd2 1024", "write /dev/mtd2 1"}));
  const std::vector<device_event> reads = root.events("read");
  ASSERT_EQ(reads.size(), 2U);
  EXPECT_EQ(reads[0].fields[1], "1024");
  EXPECT_EQ(reads[1].fields[1], "1");
  EXPECT_EQ(flash(), erased_but(bytes));
  EXPECT_EQ(root.printed(), "");
}

TEST_F(flash_write_buffer_test, protected_flash_is_bracketed_for_the_erase_and_for_both_passes) {
  EXPECT_EQ(write_bytes(noise(1024), 1), 1);
  EXPECT_EQ(root.sequence(), lines({unlock, erase, lock, unlock, "write /dev/mtd2 1024", lock}));
}

TEST_F(flash_write_buffer_test, nand_flash_is_written_the_same_way) {
  EXPECT_EQ(write_bytes(noise(5), 0, nand), 1);
  EXPECT_EQ(root.sequence(), lines({erase, "write /dev/mtd2 5"}));
}

TEST_F(flash_write_buffer_test, an_empty_buffer_erases_and_succeeds) {
  EXPECT_EQ(write_bytes("", 1), 1);
  EXPECT_EQ(root.sequence(), lines({unlock, erase, lock, unlock, lock}));
  EXPECT_EQ(root.events("read").size(), 0U);
  EXPECT_EQ(flash(), erased_but(""));
}

TEST_F(flash_write_buffer_test, every_chunk_is_told_at_verbosity_six_and_the_arguments_at_seven) {
  const std::string bytes = noise(1025);
  log_level = 6;
  EXPECT_EQ(write_bytes(bytes), 1);
  const std::string chunks =
      "VERBOSE: flash_write_buffer: writing to /dev/mtd2 offset 0x00000000 len=1024\n"
      "VERBOSE: flash_write_buffer: writing to /dev/mtd2 offset 0x00000400 len=1\n"
      "VERBOSE: flash_write_buffer: verifying /dev/mtd2 offset 0x00000000 len=1024\n"
      "VERBOSE: flash_write_buffer: verifying /dev/mtd2 offset 0x00000400 len=1\n";
  EXPECT_EQ(root.printed(), "VERBOSE: system(/usr/sbin/flash_erase /dev/mtd2 0 0)\n" + chunks);
  log_level = 7;
  EXPECT_EQ(write_bytes(bytes, 0, nand), 1);
  char trace[200];
  snprintf(trace, sizeof trace,
           "TRACE: flash_write_buffer: dev_name=/dev/mtd2 protect=0 type=nand src_ptr=%p src_len=1025\n",
           static_cast<const void*>(bytes.data()));
  EXPECT_TRUE(root.printed().starts_with(trace));
}

TEST_F(flash_write_buffer_test, other_types_are_refused_after_the_erase) {
  EXPECT_EQ(write_bytes("x", 1, mmc), 0);
  EXPECT_EQ(root.sequence(), lines({unlock, erase, lock}));
  EXPECT_EQ(root.printed(), "ERROR: flash_write_buffer: Unsupported flash type 2\n");
}

TEST_F(flash_write_buffer_test, failed_erase_writes_nothing) {
  root.answer("flash_erase", {.status = 1});
  EXPECT_EQ(write_bytes("x", 0, mmc), 0);
  EXPECT_EQ(root.sequence(), lines({erase}));
  EXPECT_EQ(root.printed(), erase_failed);
}

TEST_F(flash_write_buffer_test, second_unlock_failing_writes_nothing_and_locks) {
  root.answer("flash_unlock", {.times = 1});
  root.answer("flash_unlock", {.status = 1});
  EXPECT_EQ(write_bytes("x", 1), 0);
  EXPECT_EQ(root.sequence(), lines({unlock, erase, lock, unlock, lock}));
  EXPECT_EQ(root.printed(), unlock_failed);
}

TEST_F(flash_write_buffer_test, a_node_that_cannot_be_opened_is_reported_and_locked) {
  root.fail_call("open", {.match = node, .error = EBUSY});
  EXPECT_EQ(write_bytes("x", 1), 0);
  EXPECT_EQ(root.sequence(), lines({unlock, erase, lock, unlock, lock}));
  EXPECT_EQ(root.printed(), "ERROR: Failed to open /dev/mtd2: error(Device or resource busy)\n");
}

TEST_F(flash_write_buffer_test, failed_write_ends_the_pass_but_verification_still_runs) {
  root.fail_call("write", {.match = node, .error = EIO, .after = 1});
  EXPECT_EQ(write_bytes(noise(3000), 1), 0);
  EXPECT_EQ(root.sequence(),
            lines({unlock, erase, lock, unlock, "write /dev/mtd2 1024", "write /dev/mtd2 EIO", lock}));
  EXPECT_EQ(root.printed(),
            "ERROR: Error writing sector at /dev/mtd2 offset 0x00000400\n"
            "ERROR: Failed verify in chunk at /dev/mtd2 offset 0x00000400\n");
}

TEST_F(flash_write_buffer_test, verification_after_a_failed_write_cannot_save_it) {
  const std::string blank(2048, '\xFF');
  root.fail_call("write", {.match = node, .error = EIO, .after = 1});
  EXPECT_EQ(write_bytes(blank), 0) << "the erased flash holds the right bytes by chance";
  EXPECT_EQ(root.printed(), "ERROR: Error writing sector at /dev/mtd2 offset 0x00000400\n");
}

TEST_F(flash_write_buffer_test, short_write_is_reported_with_both_counts) {
  root.fail_call("write", {.match = node, .error = 0, .result = 1000, .after = 1});
  EXPECT_EQ(write_bytes(noise(2048)), 0);
  EXPECT_EQ(root.printed(),
            "ERROR: Short write (1000/1024 bytes) at /dev/mtd2 offset 0x00000400\n"
            "ERROR: Failed verify in chunk at /dev/mtd2 offset 0x00000400\n");
}

TEST_F(flash_write_buffer_test, failed_seek_is_reported_in_either_pass) {
  root.fail_call("lseek", {.match = node, .error = EINVAL, .after = 1, .times = 1});
  EXPECT_EQ(write_bytes(noise(2048)), 0);
  EXPECT_EQ(root.printed(),
            "ERROR: Error seeking to /dev/mtd2 offset 0x00000400\n"
            "ERROR: Failed verify in chunk at /dev/mtd2 offset 0x00000400\n");
  root.drop_rules();
  root.fail_call("lseek", {.match = node, .error = 0, .result = 7, .after = 3, .times = 1});
  EXPECT_EQ(write_bytes(noise(2048)), 0) << "a position other than the wanted one is a failure";
  EXPECT_EQ(root.printed(), "ERROR: Error seeking to /dev/mtd2 offset 0x00000400\n");
}

TEST_F(flash_write_buffer_test, failed_and_short_reads_are_reported) {
  root.fail_call("read", {.match = node, .error = EIO, .after = 1, .times = 1});
  EXPECT_EQ(write_bytes(noise(2048)), 0);
  EXPECT_EQ(root.printed(), "ERROR: Error reading at /dev/mtd2 offset 0x00000400\n");
  root.drop_rules();
  root.fail_call("read", {.match = node, .error = 0, .result = 1023, .times = 1});
  EXPECT_EQ(write_bytes(noise(2048)), 0);
  EXPECT_EQ(root.printed(), "ERROR: Short read (1023/1024 bytes) at /dev/mtd2 offset 0x00000000\n");
}

TEST_F(flash_write_buffer_test, a_flash_that_reads_back_other_bytes_is_reported) {
  root.remove(node);
  EXPECT_EQ(symlink("/dev/zero", node), 0);
  EXPECT_EQ(write_bytes("not zero", 1), 0);
  EXPECT_EQ(root.printed(), "ERROR: Failed verify in chunk at /dev/mtd2 offset 0x00000000\n");
  EXPECT_EQ(root.ran().back(), "/usr/sbin/flash_lock /dev/mtd2 0 -1");
}

TEST_F(flash_write_buffer_test, a_buffer_larger_than_the_flash_fails) {
  const std::string bytes = noise(node_size + 1);
  root.remove(node);
  root.write_file(node, "");
  root.fail_call("write", {.match = node, .error = ENOSPC, .after = static_cast<long>(node_size / 1024)});
  EXPECT_EQ(write_bytes(bytes), 0);
  EXPECT_EQ(root.printed(),
            "ERROR: Error writing sector at /dev/mtd2 offset 0x00080000\n"
            "ERROR: Short read (0/1 bytes) at /dev/mtd2 offset 0x00080000\n");
}

TEST_F(flash_write_buffer_test, last_lock_failing_is_a_failure_though_the_bytes_were_written) {
  root.answer("flash_lock", {.times = 1});
  root.answer("flash_lock", {.status = 1});
  EXPECT_EQ(write_bytes("bytes", 1), 0);
  EXPECT_EQ(flash(), erased_but("bytes"));
  EXPECT_EQ(root.printed(), lock_failed);
}

// ---------------------------------------------------------------------------------------------- a stream

class flash_write_buffer_fd_test : public raw_partition_test {
 protected:
  flash_write_buffer_fd_test() { root.trace(node); }
  const std::string header = noise(256, 9);
};

TEST_F(flash_write_buffer_fd_test, streams_pieces_as_they_arrive_without_an_erase) {
  const std::string bytes = noise(4096 + 512 + 1);
  sender source(bytes + "rest");
  root.trace("select");
  uint64_t checksum = 1;
  EXPECT_TRUE(flash_write_buffer_fd(node, 0, serial, source.fd(), nullptr, 4609, 0, &checksum));
  EXPECT_EQ(root.sequence(), lines({"select 3", "write /dev/mtd2 4096", "write /dev/mtd2 512", "select 3",
                                    "write /dev/mtd2 1"}));
  EXPECT_EQ(flash().substr(0, 4609), bytes);
  EXPECT_EQ(checksum, 0xFFFFFFFF00000000 | plain_checksum(bytes));
  EXPECT_EQ(source.rest(), "rest");
  EXPECT_EQ(root.printed(), "");
}

TEST_F(flash_write_buffer_fd_test, protected_flash_is_bracketed) {
  const sender source("ab");
  EXPECT_TRUE(flash_write_buffer_fd(node, 1, nand, source.fd(), nullptr, 2, 1, nullptr));
  EXPECT_EQ(root.sequence(),
            lines({unlock, erase, lock, unlock, "write /dev/mtd2 1", "write /dev/mtd2 1", lock}));
}

TEST_F(flash_write_buffer_fd_test, nothing_to_receive_gives_the_empty_checksum) {
  uint64_t checksum = 0;
  EXPECT_TRUE(flash_write_buffer_fd(node, 1, serial, -1, octets(header), 0, 0, &checksum));
  EXPECT_EQ(root.sequence(), lines({unlock, "write /dev/mtd2 256", lock}));
  EXPECT_EQ(checksum, 0xFFFFFFFFFFFFFFFF);
}

TEST_F(flash_write_buffer_fd_test, counts_are_told_at_verbosity_six_and_the_arguments_at_seven) {
  const sender source("abcdef");
  log_level = 6;
  EXPECT_TRUE(flash_write_buffer_fd(node, 0, serial, source.fd(), octets(header), 3, 0, nullptr));
  EXPECT_EQ(root.printed(), "VERBOSE: flash_write_buffer_fd received 3 bytes, written 3 bytes to flash\n");
  log_level = 7;
  EXPECT_TRUE(flash_write_buffer_fd(node, 0, nand, source.fd(), nullptr, 3, 0, nullptr));
  EXPECT_EQ(root.printed(),
            "TRACE: flash_write_buffer_fd: dev_name=/dev/mtd2 protect=0 type=nand src_len=3\n"
            "VERBOSE: flash_write_buffer_fd received 3 bytes, written 3 bytes to flash\n");
}

TEST_F(flash_write_buffer_fd_test, other_types_are_refused_after_the_erase_if_there_is_one) {
  sender source("ab");
  EXPECT_FALSE(flash_write_buffer_fd(node, 1, mmc, source.fd(), nullptr, 2, 0, nullptr));
  EXPECT_EQ(root.sequence(), lines());
  EXPECT_EQ(root.printed(), "ERROR: flash_write_buffer_fd: Unsupported flash type 2\n");
  EXPECT_FALSE(flash_write_buffer_fd(node, 0, mmc, source.fd(), nullptr, 2, 1, nullptr));
  EXPECT_EQ(root.sequence(), lines({erase}));
  EXPECT_EQ(source.rest(), "ab");
}

TEST_F(flash_write_buffer_fd_test, failed_erase_or_unlock_takes_nothing_from_the_stream) {
  sender source("ab");
  root.answer("flash_erase", {.status = 1});
  EXPECT_FALSE(flash_write_buffer_fd(node, 0, serial, source.fd(), nullptr, 2, 1, nullptr));
  root.answer("flash_unlock", {.status = 1});
  EXPECT_FALSE(flash_write_buffer_fd(node, 1, serial, source.fd(), nullptr, 2, 0, nullptr));
  EXPECT_EQ(root.sequence(), lines({erase, unlock, lock}));
  EXPECT_EQ(root.printed(), erase_failed + unlock_failed);
  EXPECT_EQ(source.rest(), "ab");
}

TEST_F(flash_write_buffer_fd_test, a_node_that_cannot_be_opened_is_reported_and_locked) {
  const sender source("ab");
  root.fail_call("open", {.match = node, .error = ENXIO});
  EXPECT_FALSE(flash_write_buffer_fd(node, 1, serial, source.fd(), nullptr, 2, 0, nullptr));
  EXPECT_EQ(root.sequence(), lines({unlock, lock}));
  EXPECT_EQ(root.printed(), "ERROR: Failed to open /dev/mtd2: error(No such device or address)\n");
}

TEST_F(flash_write_buffer_fd_test, failed_waits_reads_and_an_early_end_fail_the_same_way) {
  sender source("ab");
  root.fail_call("select", {.error = EINTR, .times = 1});
  EXPECT_FALSE(flash_write_buffer_fd(node, 0, serial, source.fd(), nullptr, 2, 0, nullptr));
  EXPECT_EQ(root.printed(), "ERROR: Failed to read firmware image [Interrupted system call]\n");
  root.fail_call("read", {.match = "pipe", .error = EIO, .times = 1});
  EXPECT_FALSE(flash_write_buffer_fd(node, 0, serial, source.fd(), nullptr, 2, 0, nullptr));
  EXPECT_EQ(root.printed(), "ERROR: Failed to read firmware image [Input/output error]\n");
  source.hang_up();
  EXPECT_FALSE(flash_write_buffer_fd(node, 0, serial, source.fd(), nullptr, 3, 0, nullptr));
  EXPECT_TRUE(root.printed().starts_with("ERROR: Failed to read firmware image ["));
}

// The caller notices by the checksum, or by reading the partition.
TEST_F(flash_write_buffer_fd_test, short_and_failed_writes_are_no_errors_here_but_are_counted) {
  const sender source(noise(4096 + 1024 + 512));
  uint64_t checksum = 0;
  log_level = 6;
  root.fail_call("write", {.match = node, .error = 0, .result = 100, .times = 1});
  root.fail_call("write", {.match = node, .error = EIO, .times = 1});
  EXPECT_TRUE(flash_write_buffer_fd(node, 0, serial, source.fd(), nullptr, 5632, 0, &checksum));
  EXPECT_EQ(root.printed(),
            "VERBOSE: flash_write_buffer_fd received 5632 bytes, written 611 bytes to flash\n");
  EXPECT_EQ(static_cast<uint32_t>(checksum), plain_checksum(noise(5632))) << "of what was received";
}

TEST_F(flash_write_buffer_fd_test, the_longest_length_arrives_whole) {
  const endless_source source;
  root.make_sink("/dev/mtd5");
  uint64_t checksum = 0;
  log_level = 6;
  EXPECT_TRUE(flash_write_buffer_fd("/dev/mtd5", 0, serial, source.fd(), nullptr, 0xFFFFFFFF, 0, &checksum));
  EXPECT_EQ(static_cast<uint32_t>(checksum), checksum_of_zeros);
  EXPECT_EQ(root.printed(), "VERBOSE: flash_write_buffer_fd received -1 bytes, written -1 bytes to flash\n");
}

// ---------------------------------------------------------------------------------------------- dumping

class flash_read_file_test : public raw_partition_test {};

TEST_F(flash_read_file_test, serial_flash_is_dumped_by_mtd_debug) {
  root.write_file(node, noise(node_size));
  EXPECT_TRUE(flash_read_file(node, serial, "/tmp/dump"));
  EXPECT_EQ(root.shell_lines(), lines({"/usr/sbin/mtd_debug read /dev/mtd2 0 524288 /tmp/dump"}));
  EXPECT_EQ(root.read_file("/tmp/dump"), noise(node_size));
  EXPECT_EQ(root.printed(), "");
}

TEST_F(flash_read_file_test, nand_flash_is_dumped_by_nanddump) {
  EXPECT_TRUE(flash_read_file(node, nand, "/tmp/dump"));
  EXPECT_EQ(root.shell_lines(), lines({"/usr/sbin/nanddump -f /tmp/dump -l 524288 -o -b /dev/mtd2"}));
}

TEST_F(flash_read_file_test, the_node_is_opened_for_reading_and_asked_for_its_size) {
  root.trace(node);
  EXPECT_TRUE(flash_read_file(node, serial, "/tmp/dump"));
  EXPECT_EQ(root.events("open")[0].fields, lines({node, "0", "0"}));
  char request[16];
  snprintf(request, sizeof request, "0x%08lx", static_cast<unsigned long>(MEMGETINFO));
  EXPECT_EQ(root.events("ioctl")[0].fields[1], request);
}

TEST_F(flash_read_file_test, a_node_that_cannot_be_opened_is_reported) {
  EXPECT_FALSE(flash_read_file("/dev/mtd99", serial, "/tmp/dump"));
  EXPECT_EQ(root.printed(), "ERROR: Failed to open /dev/mtd99: error(No such file or directory)\n");
}

TEST_F(flash_read_file_test, a_node_that_tells_nothing_is_reported) {
  root.fail_ioctl(MEMGETINFO, ENOTTY);
  EXPECT_FALSE(flash_read_file(node, serial, "/tmp/dump"));
  EXPECT_EQ(root.printed(),
            "ERROR: Failed to get meminfo for /dev/mtd2: error(Inappropriate ioctl for device)\n");
  EXPECT_EQ(root.shell_lines(), lines());
}

TEST_F(flash_read_file_test, other_types_are_refused) {
  EXPECT_FALSE(flash_read_file(node, mmc, "/tmp/dump"));
  EXPECT_EQ(root.printed(), "ERROR: flash_read_file: Unsupported flash type 2\n");
  EXPECT_EQ(root.shell_lines(), lines());
}

TEST_F(flash_read_file_test, a_failing_tool_is_a_failure) {
  root.answer("mtd_debug", {.status = 1});
  EXPECT_FALSE(flash_read_file(node, serial, "/tmp/dump"));
  EXPECT_EQ(root.printed(), failed("/usr/sbin/mtd_debug read /dev/mtd2 0 524288 /tmp/dump"));
}

TEST_F(flash_read_file_test, traces_its_name) {
  log_level = 7;
  EXPECT_TRUE(flash_read_file(node, serial, "/tmp/dump"));
  EXPECT_TRUE(root.printed().starts_with("TRACE: flash_read_file:\nTRACE: exec_system_cmd:\n"));
}

}  // namespace
