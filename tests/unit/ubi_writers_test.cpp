// The content writers: form (memory, stream) x event (all well, a step fails, the sender fails, the tool
// dies).
#include <chrono>
#include <csignal>
#include <thread>

#include "ubi/by_path.h"
#include "ubi/python_writer.h"
#include "ubi/volume_writers.h"
#include "ubi_test.h"

namespace {

constexpr const char* stopped = "[Connection timed out]\n";
constexpr const char* ended = "[No data available]\n";

class ubi_writer_test : public ubi_test {
 protected:
  ubi_writer_test() { set_lebs(300, 300, 1, 0); }

  // What the tool read from its standard input.
  std::string input_of(const std::string& tool) const {
    for (const device_event& event : root.events("input")) {
      if (event.fields[0].find(tool) != std::string::npos) return event.fields[1];
    }
    return "";
  }

  static inline const std::string empty_volume = "/usr/sbin/ubiupdatevol /dev/ubi0_1 -t";
  static inline const std::string untar = "tar -mxJf - -C /mnt";
  static inline const std::string chmod_busybox = "/bin/chmod 4755 /mnt/bin/busybox";
  static std::string update(unsigned size) {
    return "/usr/sbin/ubiupdatevol /dev/ubi0_1 -s " + std::to_string(size) + " -";
  }
};

// ---------------------------------------------------------------------------------------------- UBIFS images

TEST_F(ubi_writer_test, every_writer_traces_its_arguments_first) {
  struct {
    const char* first;
    void (*writer)();
  } constexpr cases[] = {
      {"ubi_write_buffer_ubifs: mtd_dev_name=/dev/ubi0_1 ubi_dev_name=ubi0 src_len=0",
       [] { ubi_write_buffer_ubifs("/dev/ubi0_1", "ubi0", nullptr, 0); }},
      {"ubi_write_buffer_tar_lzma: mtd_dev_name=/dev/ubi0_1 ubi_dev_name=ubi0 src_len=5",
       [] { ubi_write_buffer_tar_lzma("/dev/ubi0_1", "ubi0", nullptr, 5); }},
      {"ubi_write_buffer_tar_lzma_fd: mtd_dev_name=/dev/ubi0_1 ubi_dev_name=ubi0 src_len=4294967295",
       [] { ubi_write_buffer_tar_lzma_fd("/dev/ubi0_1", "ubi0", -1, nullptr, UINT32_MAX, nullptr); }},
      {"ubi_write_buffer_python_fs_tar_lzma: mtd_dev_name=/dev/ubi0_1 ubi_dev_name=ubi0 src_len=5",
       [] { ubi_write_buffer_python_fs_tar_lzma("/dev/ubi0_1", "ubi0", nullptr, 5); }},
      {"ubi_write_buffer_python_fs_tar_lzma_fd: mtd_dev_name=/dev/ubi0_1 ubi_dev_name=ubi0 src_len=5",
       [] { ubi_write_buffer_python_fs_tar_lzma_fd("/dev/ubi0_1", "ubi0", -1, nullptr, 5, nullptr, true); }},
      {"ubi_python_fs_tar_lzma_fd_prepare: mtd_dev_name=/dev/ubi0_1 ubi_dev_name=ubi0",
       [] { ubi_python_fs_tar_lzma_fd_prepare("/dev/ubi0_1", "ubi0"); }},
      {"ubi_python_fs_tar_lzma_fd_finalize: mtd_dev_name=/dev/ubi0_1 ubi_dev_name=ubi0",
       [] { ubi_python_fs_tar_lzma_fd_finalize("/dev/ubi0_1", "ubi0"); }},
      {"ubi_write_file_into_fs: mtd_dev_name=/dev/ubi0_1 ubi_dev_name=ubi0 src_file=/tmp/a dst_dir=/cfg/ "
       "dst_file=b dst_perm=644",
       [] { ubi_write_file_into_fs("/dev/ubi0_1", "ubi0", "/tmp/a", "/cfg/", "b", "644"); }},
      {"ubi_write_file: mtd_dev_name=/dev/ubi0_1 ubi_dev_name=ubi0 filename=/tmp/a",
       [] { ubi_write_file("/dev/ubi0_1", "ubi0", "/tmp/a"); }},
  };
  for (const auto& each : cases) {
    log_level = 7;
    each.writer();
    EXPECT_TRUE(root.printed().starts_with("TRACE: " + std::string(each.first) + "\n")) << each.first;
    log_level = 6;
    each.writer();
    EXPECT_EQ(root.printed().find(each.first), std::string::npos) << each.first;
  }
}

TEST_F(ubi_writer_test, a_path_outside_the_table_or_of_another_device_touches_nothing) {
  const sender line("x");
  struct {
    const char* path;
    const char* device;
    const char* error;
  } constexpr cases[] = {
      {"/dev/ubi0_9", "ubi0", "ERROR: No entry in mtd table for /dev/ubi0_9\n"},
      {"/dev/ubi0_1", "ubi1", "ERROR: Invalid ubi device=ubi1\n"},
  };
  for (const auto& [path, device, error] : cases) {
    const uint8_t* nothing = nullptr;
    EXPECT_FALSE(ubi_write_buffer_ubifs(path, device, nothing, 0));
    EXPECT_FALSE(ubi_write_buffer_ubifs_fd(path, device, line.fd(), nullptr, 1, true, nullptr));
    EXPECT_FALSE(ubi_write_buffer_tar_lzma(path, device, nothing, 0));
    EXPECT_FALSE(ubi_write_buffer_tar_lzma_fd(path, device, line.fd(), nullptr, 1, nullptr));
    EXPECT_FALSE(ubi_write_buffer_python_fs_tar_lzma(path, device, nothing, 0));
    EXPECT_FALSE(ubi_python_fs_tar_lzma_fd_prepare(path, device));
    EXPECT_FALSE(ubi_write_buffer_python_fs_tar_lzma_fd(path, device, line.fd(), nullptr, 1, nullptr, true));
    EXPECT_FALSE(ubi_python_fs_tar_lzma_fd_finalize(path, device));
    EXPECT_FALSE(ubi_write_file_into_fs(path, device, "/tmp/a", "/cfg/", "b", "644"));
    EXPECT_FALSE(ubi_write_file(path, device, "/tmp/a"));
    std::string expected;
    for (int i = 0; i < 10; i++)
      expected += error;
    EXPECT_EQ(root.printed(), expected);
  }
  EXPECT_EQ(root.shell_lines(), lines());
  log_level = 7;
  EXPECT_FALSE(ubi_python_fs_tar_lzma_fd_prepare("/dev/ubi0_9", "ubi0"));
  EXPECT_TRUE(root.printed().starts_with(
      "TRACE: ubi_python_fs_tar_lzma_fd_prepare: mtd_dev_name=/dev/ubi0_9 ubi_dev_name=ubi0\n"));
}

class ubifs_writer_test : public ubi_writer_test {};

TEST_F(ubifs_writer_test, an_image_in_memory_goes_into_the_volume) {
  const std::string image = noise(10001);
  EXPECT_EQ(ubi_write_buffer_ubifs("/dev/ubi0_1", "ubi0", octets(image), image.size()), 1);
  EXPECT_EQ(root.shell_lines(), joined({{attach, nodes}, schema_check, {update(10001), detach}}));
  EXPECT_EQ(input_of("ubiupdatevol"), "10001");
  EXPECT_EQ(root.printed(), "");
}

TEST_F(ubifs_writer_test, a_header_is_announced_sent_and_not_summed) {
  const std::string image = noise(77);
  const std::string header = part{13, image}.header();
  const sender line(image);
  uint64_t checksum = 0;
  log_level = 6;
  EXPECT_EQ(ubi_write_buffer_ubifs_fd("/dev/ubi0_1", "ubi0", line.fd(), octets(header), 77, 0, &checksum), 1);
  EXPECT_EQ(input_of("ubiupdatevol"), "333");
  EXPECT_EQ(static_cast<uint32_t>(checksum), plain_checksum(image));
  const std::string said = root.printed();
  EXPECT_EQ(
      said.find("VERBOSE: ubi_write_buffer_ubifs_fd: mtd_dev_name=/dev/ubi0_1 ubi_dev_name=ubi0 src_len=77\n"
                "VERBOSE: ubi_write_buffer_ubifs_fd header:yes\n"),
      0u)
      << said;
  EXPECT_NE(said.find("VERBOSE: popen(" + update(333) + ")\n"), std::string::npos);
  EXPECT_NE(said.find("VERBOSE: ubi_write_buffer_ubifs_fd received 77 bytes\n"), std::string::npos);
}

TEST_F(ubifs_writer_test, a_failed_attach_is_detached_all_the_same) {
  root.answer("ubiattach", {.status = 1});
  const sender line("x");
  EXPECT_EQ(ubi_write_buffer_ubifs_fd("/dev/ubi0_1", "ubi0", line.fd(), nullptr, 1, 1, nullptr), 0);
  EXPECT_EQ(root.shell_lines(), lines({attach, nodes, detach}));
}

TEST_F(ubifs_writer_test, after_silence_the_tool_ends_only_once_the_device_was_given_back) {
  const sender line(noise(100));
  ubi_write_buffer_ubifs_fd("/dev/ubi0_1", "ubi0", line.fd(), nullptr, 200, 0, nullptr);
  lines ends;
  for (const device_event& event : root.events("exit"))
    ends.push_back(event.fields[0]);
  ASSERT_GE(ends.size(), 2u);
  EXPECT_NE(ends[ends.size() - 2].find("ubidetach"), std::string::npos) << ends[ends.size() - 2];
  EXPECT_NE(ends.back().find("ubiupdatevol"), std::string::npos) << ends.back();
}

TEST_F(ubifs_writer_test, a_device_that_the_waiting_tool_kept_busy_is_detached_again) {
  root.answer("ubidetach", {.times = 1, .status = 1});
  const sender line(noise(100));
  EXPECT_EQ(ubi_write_buffer_ubifs_fd("/dev/ubi0_1", "ubi0", line.fd(), nullptr, 200, 0, nullptr), 0);
  EXPECT_EQ(root.shell_lines(), lines({attach, nodes, update(200), detach, detach}));
}

TEST_F(ubifs_writer_test, at_the_end_of_input_the_tool_ends_first) {
  sender line(noise(100));
  line.hang_up();
  EXPECT_EQ(ubi_write_buffer_ubifs_fd("/dev/ubi0_1", "ubi0", line.fd(), nullptr, 200, 0, nullptr), 0);
  EXPECT_EQ(root.printed(), "ERROR: Failed to read firmare image " + std::string(ended));
  const auto ends = root.events("exit");
  ASSERT_GE(ends.size(), 2u);
  EXPECT_NE(ends[ends.size() - 2].fields[0].find("ubiupdatevol"), std::string::npos);
  EXPECT_NE(ends.back().fields[0].find("ubidetach"), std::string::npos);
}

TEST_F(ubifs_writer_test, a_tool_that_dies_costs_the_operation_not_the_shell) {
  root.answer("ubiupdatevol", {.signal_number = SIGKILL, .reads = 10});
  const std::string image = noise(900000);
  const sender line(image);
  EXPECT_EQ(ubi_write_buffer_ubifs_fd("/dev/ubi0_1", "ubi0", line.fd(), nullptr, 900000, 0, nullptr), 0);
  EXPECT_EQ(root.printed(),
            "ERROR: Failed to write firmware image [Broken pipe]\n"
            "ERROR: \nError writing to pipe\n");
  EXPECT_EQ(root.shell_lines().back(), detach);
  struct sigaction action;
  ASSERT_EQ(sigaction(SIGPIPE, nullptr, &action), 0);
  EXPECT_EQ(action.sa_handler, SIG_DFL) << "tools must die of broken pipes";
}

TEST_F(ubifs_writer_test, a_tool_that_dies_early_fails_the_form_in_memory_too) {
  root.answer("ubiupdatevol", {.signal_number = SIGKILL, .reads = 10});
  const std::string image = noise(900000);
  EXPECT_EQ(ubi_write_buffer_ubifs("/dev/ubi0_1", "ubi0", octets(image), image.size()), 0);
  EXPECT_EQ(root.printed(), "ERROR: \nError writing to pipe\n");
}

TEST_F(ubifs_writer_test, a_tool_that_fails_after_its_input_goes_unnoticed) {
  root.answer("ubiupdatevol", {.status = 1});
  const sender line("x");
  EXPECT_EQ(ubi_write_buffer_ubifs_fd("/dev/ubi0_1", "ubi0", line.fd(), nullptr, 1, 0, nullptr), 1);
  EXPECT_EQ(root.printed(), "");
}

TEST_F(ubifs_writer_test, a_tool_that_cannot_be_started_is_an_error) {
  root.fail_call("posix_spawn", {.match = "ubiupdatevol"});
  const sender line("x");
  EXPECT_EQ(ubi_write_buffer_ubifs_fd("/dev/ubi0_1", "ubi0", line.fd(), nullptr, 1, 0, nullptr), 0);
  EXPECT_EQ(root.printed(), "ERROR: Failed to open pipe for write\n");
  EXPECT_EQ(root.shell_lines(), lines({attach, nodes, detach}));
}

TEST_F(ubifs_writer_test, a_file_goes_into_the_volume) {
  EXPECT_EQ(ubi_write_file("/dev/ubi0_1", "ubi0", "/tmp/rootfs.ubifs"), 1);
  EXPECT_EQ(root.shell_lines(), joined({{attach, nodes},
                                        schema_check,
                                        {"/usr/sbin/ubiupdatevol /dev/ubi0_1 /tmp/rootfs.ubifs", detach}}));
  root.answer("ubiupdatevol", {.status = 1, .out = "short of space\n"});
  EXPECT_EQ(ubi_write_file("/dev/ubi0_1", "ubi0", "/tmp/rootfs.ubifs"), 0);
  EXPECT_EQ(root.shell_lines().back(), detach);
  EXPECT_EQ(root.printed(),
            "short of space\nERROR: system(/usr/sbin/ubiupdatevol /dev/ubi0_1 /tmp/rootfs.ubifs) sys_rc=256 "
            "exitstatus=1\n")
      << "the tool is shown";
}

// ---------------------------------------------------------------------------------------------- archives

class archive_writer_test : public ubi_writer_test {
 protected:
  archive_writer_test() {
    // What the archive brings; chmod is the real one.
    std::filesystem::create_directories("/mnt/bin");
    root.write_file("/mnt/bin/busybox", "busybox");
  }
  static lines up_to_archive() {
    return joined({{attach, nodes}, schema_check, {empty_volume, mount("rootfs_2"), untar}});
  }
};

TEST_F(archive_writer_test, an_archive_replaces_what_the_volume_held) {
  const std::string archive = noise(5000);
  EXPECT_EQ(ubi_write_buffer_tar_lzma("/dev/ubi0_1", "ubi0", octets(archive), archive.size()), 1);
  EXPECT_EQ(root.shell_lines(), joined({up_to_archive(), {chmod_busybox, unmount, detach}}));
  EXPECT_EQ(input_of("tar"), "5000");
}

TEST_F(archive_writer_test, a_stream_does_the_same_and_is_summed) {
  const std::string archive = noise(4097);
  const sender line(archive);
  uint64_t checksum = 0;
  log_level = 6;
  EXPECT_EQ(ubi_write_buffer_tar_lzma_fd("/dev/ubi0_1", "ubi0", line.fd(), nullptr, 4097, &checksum), 1);
  EXPECT_EQ(static_cast<uint32_t>(checksum), plain_checksum(archive));
  EXPECT_NE(root.printed().find("VERBOSE: ubi_write_buffer_tar_lzma_fd received 4097 bytes\n"),
            std::string::npos);
}

TEST_F(archive_writer_test, the_shell_survives_a_broken_pipe_only_until_the_archive_is_unpacked) {
  root.answer("chmod", {.hold_ms = 60000});
  struct sigaction meanwhile = {};
  meanwhile.sa_handler = SIG_ERR;
  std::thread watcher([this, &meanwhile] {
    const auto give_up = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (std::chrono::steady_clock::now() < give_up) {
      for (const device_event& event : root.events("answer")) {
        if (event.fields.back().find("chmod") != std::string::npos) {
          sigaction(SIGPIPE, nullptr, &meanwhile);
          kill(event.pid, SIGKILL);
          return;
        }
      }
      usleep(1000);
    }
  });
  const std::string archive = noise(500);
  EXPECT_FALSE(ubi_write_buffer_tar_lzma("/dev/ubi0_1", "ubi0", octets(archive), archive.size()));
  watcher.join();
  EXPECT_EQ(meanwhile.sa_handler, SIG_DFL);
  EXPECT_EQ(root.printed(), "ERROR: Failed chmod 4755 /bin/busybox\n");
}

TEST_F(archive_writer_test, a_header_is_sent_ahead_and_not_summed) {
  const std::string archive = noise(500);
  const std::string header = part{12, archive}.header();
  const sender line(archive);
  uint64_t checksum = 0;
  EXPECT_EQ(ubi_write_buffer_tar_lzma_fd("/dev/ubi0_1", "ubi0", line.fd(), octets(header), 500, &checksum),
            1);
  EXPECT_EQ(input_of("tar"), "756");
  EXPECT_EQ(static_cast<uint32_t>(checksum), plain_checksum(archive));
}

TEST_F(archive_writer_test, a_header_that_cannot_be_sent_ends_it_before_the_stream_is_touched) {
  const std::string header = part{12, "archive"}.header();
  sender line("archive");
  root.fail_call("write", {.match = "pipe", .error = EPIPE, .times = 1});
  EXPECT_EQ(ubi_write_buffer_tar_lzma_fd("/dev/ubi0_1", "ubi0", line.fd(), octets(header), 7, nullptr), 0);
  EXPECT_EQ(root.printed(), "ERROR: \nError writing to pipe\n");
  EXPECT_EQ(root.shell_lines(), joined({up_to_archive(), {unmount, detach}}));
  EXPECT_EQ(line.rest(), "archive");
}

TEST_F(archive_writer_test, every_step_that_fails_unmounts_and_detaches) {
  struct {
    const char* tool;
    const char* when;
    lines before;
    std::string error;
  } const cases[] = {
      {"ubiattach", "", {attach, nodes}, "ERROR: Failed to attach /dev/mtd10 to ubi0\n"},
      {"ubiupdatevol", "-t", joined({{attach, nodes}, schema_check, {empty_volume}}),
       "ERROR: system(" + empty_volume + ") sys_rc=256 exitstatus=1\n"},
      {"mount", "-t ubifs", joined({{attach, nodes}, schema_check, {empty_volume, mount("rootfs_2")}}),
       "ERROR: Failed to mount rootfs for update\n"},
      {"chmod", "", joined({up_to_archive(), {chmod_busybox}}), "ERROR: Failed chmod 4755 /bin/busybox\n"},
  };
  for (const auto& each : cases) {
    root.answer(each.tool, {.when = each.when, .times = 1, .status = 1});
    root.forget();
    const sender line("archive");
    EXPECT_EQ(ubi_write_buffer_tar_lzma_fd("/dev/ubi0_1", "ubi0", line.fd(), nullptr, 7, nullptr), 0)
        << each.tool;
    EXPECT_EQ(root.shell_lines(), joined({each.before, {unmount, detach}})) << each.tool;
    EXPECT_EQ(root.printed(), each.error);
  }
}

TEST_F(archive_writer_test, silence_gives_the_volume_back_before_the_tool_ends) {
  root.answer("umount", {.times = 1, .status = 1});
  const sender line("arch");
  EXPECT_EQ(ubi_write_buffer_tar_lzma_fd("/dev/ubi0_1", "ubi0", line.fd(), nullptr, 7, nullptr), 0);
  EXPECT_EQ(root.printed(), "ERROR: Failed to read firmware image " + std::string(stopped));
  // The busy volume is given back once more when the tool has ended.
  EXPECT_EQ(root.shell_lines(), joined({up_to_archive(), {unmount, detach, unmount, detach}}));
}

// ---------------------------------------------------------------------------------------------- one file

class file_writer_test : public ubi_writer_test {
 protected:
  int install() {
    return ubi_write_file_into_fs("/dev/ubi0_3", "ubi0", "/tmp/image.part", "/cfg/", "hidden.oem.xml", "644");
  }
  static inline const std::string install_line =
      "/usr/bin/install -D -m644 /tmp/image.part /mnt/cfg/hidden.oem.xml" + quiet;
};

TEST_F(file_writer_test, a_device_that_cannot_be_attached) {
  root.answer("ubiattach", {.status = 1});
  EXPECT_EQ(install(), 0);
  EXPECT_EQ(root.shell_lines().front(), attach);
  for (const std::string& line : root.shell_lines())
    EXPECT_FALSE(line.starts_with("/bin/mount") || line.starts_with("/usr/bin/install")) << line;
}

TEST_F(file_writer_test, a_volume_that_cannot_be_mounted) {
  root.answer("mount", {.when = "-t ubifs", .status = 32});
  EXPECT_EQ(install(), 0);
  EXPECT_EQ(root.printed(), "ERROR: Failed to mount ubi0:vexo_private\n");
  EXPECT_EQ(root.shell_lines(), lines({attach, nodes, mount("vexo_private"), unmount, detach}));
}

// ---------------------------------------------------------------------------------------------- Python

class python_writer_test : public ubi_writer_test {
 protected:
  static inline const std::string volume = "/dev/ubi0_4";
  static inline const lines begin = {attach, nodes, mount("vexo_user")};
  static inline const lines look_for_space = {"rm -rf /tmp/python 2>/dev/null",
                                              "mv /mnt/python/ /tmp/ 2>/dev/null",
                                              "mv /tmp/python /mnt/ 2>/dev/null"};
  static inline const lines save = {"rm -rf /tmp/site-packages/ 2>/dev/null",
                                    "cp -r /mnt/python/lib/python2.7/site-packages /tmp/ 2>/dev/null",
                                    "rm -rf /mnt/python/ 2>/dev/null", "mkdir -p /mnt/python/ 2>/dev/null"};
  static inline const lines unpack = {"tar -xmzaf - -C /mnt/python/"};
  static inline const lines restore = {
      "mkdir -p /mnt/python/lib/python2.7/site-packages/ 2>/dev/null",
      "cp -r /tmp/site-packages/* /mnt/python/lib/python2.7/site-packages/ 2>/dev/null"};
  static inline const lines end = {unmount, detach};

  // Every form that there is, each with nothing to unpack.
  static constexpr bool (*forms[])() = {
      [] { return ubi_write_buffer_python_fs_tar_lzma(volume.c_str(), "ubi0", nullptr, 0); },
      [] {
        return ubi_write_buffer_python_fs_tar_lzma_fd(volume.c_str(), "ubi0", -1, nullptr, 0, nullptr, 1);
      },
      [] { return ubi_python_fs_tar_lzma_fd_prepare(volume.c_str(), "ubi0"); },
      [] { return ubi_python_fs_tar_lzma_fd_finalize(volume.c_str(), "ubi0"); },
  };
  static constexpr size_t forms_that_ask_for_space = 3;
};

TEST_F(python_writer_test, an_archive_in_memory_keeps_the_packages) {
  const std::string archive = noise(300);
  EXPECT_EQ(ubi_write_buffer_python_fs_tar_lzma(volume.c_str(), "ubi0", octets(archive), archive.size()), 1);
  EXPECT_EQ(root.shell_lines(), joined({begin, look_for_space, save, unpack, restore, end}));
}

TEST_F(python_writer_test, a_self_contained_stream_does_all_of_it) {
  const std::string archive = noise(301);
  const sender line(archive);
  uint64_t checksum = 0;
  log_level = 6;
  EXPECT_EQ(
      ubi_write_buffer_python_fs_tar_lzma_fd(volume.c_str(), "ubi0", line.fd(), nullptr, 301, &checksum, 1),
      1);
  EXPECT_EQ(static_cast<uint32_t>(checksum), plain_checksum(archive));
  const std::string said = root.printed();
  for (const char* text :
       {"VERBOSE: Computing Python installation space(6291456 required, ",
        "VERBOSE: backup user installed packages\n", "VERBOSE: restore user installed packages\n",
        "VERBOSE: ubi_write_buffer_python_fs_tar_lzma_fd total received 301 bytes\n"}) {
    EXPECT_NE(said.find(text), std::string::npos) << text;
  }
}

TEST_F(python_writer_test, a_header_is_sent_ahead_and_not_summed) {
  const std::string archive = noise(500);
  const std::string header = part{14, archive}.header();
  const sender line(archive);
  uint64_t checksum = 0;
  log_level = 6;
  EXPECT_TRUE(ubi_write_buffer_python_fs_tar_lzma_fd(volume.c_str(), "ubi0", line.fd(), octets(header), 500,
                                                     &checksum, true));
  EXPECT_EQ(input_of("tar"), "756");
  EXPECT_EQ(static_cast<uint32_t>(checksum), plain_checksum(archive));
  EXPECT_NE(root.printed().find("_fd total received 500 bytes\n"), std::string::npos);
}

TEST_F(python_writer_test, prepare_stream_and_finalize_together_do_the_same) {
  const sender line("archive");
  EXPECT_EQ(ubi_python_fs_tar_lzma_fd_prepare(volume.c_str(), "ubi0"), 1);
  EXPECT_EQ(root.shell_lines(), joined({begin, look_for_space, save, end}));
  root.forget();
  EXPECT_EQ(ubi_write_buffer_python_fs_tar_lzma_fd(volume.c_str(), "ubi0", line.fd(), nullptr, 7, nullptr, 0),
            1);
  EXPECT_EQ(root.shell_lines(), joined({begin, unpack, end}));
  root.forget();
  EXPECT_EQ(ubi_python_fs_tar_lzma_fd_finalize(volume.c_str(), "ubi0"), 1);
  EXPECT_EQ(root.shell_lines(), joined({begin, restore, end}));
}

TEST_F(python_writer_test, a_volume_that_cannot_be_mounted) {
  root.answer("mount", {.when = "-t ubifs", .status = 32});
  for (const auto& form : forms) {
    root.forget();
    EXPECT_EQ(form(), 0);
    EXPECT_EQ(root.printed(), "ERROR: Failed to mount rootfs for update\n");
    EXPECT_EQ(root.shell_lines(), joined({begin, end}));
  }
}

TEST_F(python_writer_test, a_failed_attach_unmounts_and_detaches) {
  root.answer("ubiattach", {.status = 1});
  for (const auto& form : forms) {
    root.forget();
    EXPECT_EQ(form(), 0);
    EXPECT_EQ(root.shell_lines(), joined({{attach, nodes}, end}));
  }
}

TEST_F(python_writer_test, a_tool_that_dies_restores_nothing) {
  root.answer("tar", {.signal_number = SIGKILL, .reads = 10});
  const std::string archive = noise(900000);
  EXPECT_EQ(ubi_write_buffer_python_fs_tar_lzma(volume.c_str(), "ubi0", octets(archive), archive.size()), 0);
  EXPECT_EQ(root.printed(), "ERROR: \nError writing to pipe\n");
  EXPECT_EQ(root.shell_lines(), joined({begin, look_for_space, save, unpack, end}));
}

// What is free on the volume, to the byte.
class python_space_test : public python_writer_test {
 protected:
  uint32_t available(uint64_t free_blocks, long block_size) {
    root.set_free_space(free_blocks, block_size);
    return getAvailableSpace("/mnt");
  }
};

TEST_F(python_space_test, a_margin_of_64_kib_less_one_byte_is_kept) {
  EXPECT_EQ(available(65535, 1), 0u);
  EXPECT_EQ(available(65536, 1), 1u);
  EXPECT_EQ(available(0, 4096), 0u);
  EXPECT_EQ(available(16, 4096), 1u);
  EXPECT_EQ(available(17, 4096), 4097u);
}

TEST_F(python_space_test, a_block_size_that_makes_no_sense_counts_as_a_kib) {
  EXPECT_EQ(available(65, 0), 1025u);
  EXPECT_EQ(available(65, -4096), 1025u);
}

TEST_F(python_space_test, space_is_counted_in_32_bits) {
  EXPECT_EQ(available((uint64_t{1} << 20) + 16, 4096), 1u);
  EXPECT_EQ(available(uint64_t{1} << 32, 4096), 0u);
}

TEST_F(python_space_test, one_byte_too_little_is_refused_and_the_old_installation_stays) {
  root.set_free_space(6291455 + 65535, 1);
  for (size_t i = 0; i < forms_that_ask_for_space; i++) {
    root.forget();
    EXPECT_EQ(forms[i](), 0);
    EXPECT_EQ(root.printed(),
              "ERROR: ERROR: Not enough space for Python installation (6291456 required, 6291455 "
              "available)\n");
    EXPECT_EQ(root.shell_lines(), joined({begin, look_for_space, end}));
  }
}

TEST_F(python_space_test, just_enough_goes_ahead) {
  root.set_free_space(6291456 + 65535, 1);
  EXPECT_EQ(ubi_python_fs_tar_lzma_fd_prepare(volume.c_str(), "ubi0"), 1);
  EXPECT_EQ(root.shell_lines(), joined({begin, look_for_space, save, end}));
}

TEST(available_space_test, a_path_that_has_no_file_system_passes_for_enough) {
  EXPECT_EQ(getAvailableSpace("/no/such/path"), 0xFFFFFFFFu);
}

}  // namespace
