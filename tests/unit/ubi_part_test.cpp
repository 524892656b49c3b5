// Parts of an image file that go into UBI volumes: state of the flash x type x event; and of a stream, where
// no command leads. How each writer does its work is in ubi_writers_test.cpp.
#include "image/ubi_part.h"

#include "image/file_installation.h"
#include "ubi_test.h"

namespace {

constexpr uint32_t all_types = 0xFFFFFFFF;
constexpr char path[] = "/tmp/image.rom";

class ubi_part_test : public ubi_test {
 protected:
  ubi_part_test() {
    set_lebs(8, 8, 1, 0);
    put_ubi0(in_use);
    std::filesystem::create_directories("/mnt/bin");
    root.write_file("/mnt/bin/busybox", "busybox");
  }
  int write(const std::string& image) {
    root.write_file(path, image);
    root.forget();
    return image_write(path, mtd_bank_2, all_types);
  }

  static inline const part oem = {.type = 11, .contents = "<oem/>"};
  static inline const part archive = {.type = 12, .contents = noise(5000)};
  static inline const part ubifs = {.type = 13, .contents = noise(4097)};
  static inline const part python = {.type = 14, .contents = noise(300)};

  static inline const lines install_oem = {
      attach,
      nodes,
      mount("vexo_private"),
      "/usr/bin/install -D -m644 /tmp/image.part /mnt/cfg/hidden.oem.xml" + quiet,
      unmount,
      detach};
  static inline const lines unpack_archive =
      joined({{attach, nodes},
              schema_check,
              {"/usr/sbin/ubiupdatevol /dev/ubi0_1 -t", mount("rootfs_2"), "tar -mxJf - -C /mnt",
               "/bin/chmod 4755 /mnt/bin/busybox", unmount, detach}});
  static inline const lines switch_bank = {"/usr/sbin/fw_setenv kernel_size_2 0 > /dev/null 2>&1",
                                           "/usr/sbin/fw_setenv bootbank 2 > /dev/null 2>&1"};
};

TEST_F(ubi_part_test, each_type_has_its_writer_and_a_root_file_system_alone_sets_the_kernel_size_to_zero) {
  EXPECT_EQ(write(archive.whole()), 1);
  EXPECT_EQ(root.shell_lines(), joined({unpack_archive, switch_bank}));
  EXPECT_EQ(write(ubifs.whole()), 1);
  EXPECT_EQ(root.shell_lines(), joined({{attach, nodes},
                                        schema_check,
                                        {"/usr/sbin/ubiupdatevol /dev/ubi0_1 -s 4097 -", detach},
                                        switch_bank}));
  EXPECT_EQ(write(oem.whole()), 1);
  EXPECT_EQ(root.shell_lines(), install_oem) << "no reason to switch";
  EXPECT_EQ(write(python.whole()), 1);
  EXPECT_EQ(root.shell_lines().size(), 15U);
  EXPECT_EQ(root.shell_lines()[10], "tar -xmzaf - -C /mnt/python/");
  EXPECT_EQ(root.printed(), archive.info() + ubifs.info() + oem.info() + python.info());
}

TEST_F(ubi_part_test, images_for_small_erase_blocks_and_old_archives_are_taken_without_a_check) {
  const part other = {.type = 10, .contents = noise(10)};
  EXPECT_EQ(write(other.whole()), 1);
  EXPECT_EQ(root.shell_lines()[4], "/usr/sbin/ubiupdatevol /dev/ubi0_1 -s 10 -");
  const part old = {.type = 5, .contents = archive.contents};
  EXPECT_EQ(write(old.whole()), 1);
  EXPECT_EQ(root.shell_lines(), joined({unpack_archive, switch_bank}));
}

TEST_F(ubi_part_test, clean_flash_is_formatted_with_the_sizes_of_the_header) {
  put_ubi0(erased);
  EXPECT_EQ(write(archive.whole()), 1);
  EXPECT_EQ(root.shell_lines(), joined({format_all(64, 5), unpack_archive, switch_bank}));
  std::string image = archive.whole();
  put_number(image, 204, 16);
  put_number(image, 212, 128);
  seal(image);
  EXPECT_EQ(write(image), 1);
  EXPECT_EQ(root.env()["mtdparts"], "atmel_nand:128k(ubi0),-(user)");
  const lines all = root.shell_lines();
  EXPECT_EQ(std::count(all.begin(), all.end(), make_volume(1, "-s 16KiB", "rootfs_2")), 1);
}

TEST_F(ubi_part_test, the_temporary_file_holds_the_contents_and_never_stays) {
  root.answer("install", {.status = 1});
  root.trace("/tmp/image.part");
  EXPECT_EQ(write(oem.whole()), 0);
  EXPECT_EQ(root.events("write").size(), 1U);
  EXPECT_EQ(root.shell_lines(), install_oem);
  EXPECT_FALSE(root.exists("/tmp/image.part"));
  EXPECT_EQ(root.printed(),
            oem.info() + "ERROR: Failed to install file to /cfg//hidden.oem.xml within ubi0:vexo_private\n");
}

TEST_F(ubi_part_test, a_temporary_file_that_cannot_be_made_or_filled_ends_it) {
  root.fail_call("open", {.match = "/tmp/image.part", .error = ENOSPC, .times = 1});
  EXPECT_EQ(write(oem.whole()), 0);
  EXPECT_EQ(root.printed(), oem.info() + "ERROR: open(/tmp/image.part) error(No space left on device)\n");
  root.fail_call("write", {.match = "/tmp/image.part", .error = ENOSPC, .times = 1});
  EXPECT_EQ(write(oem.whole()), 0);
  EXPECT_EQ(root.printed(), oem.info() + "ERROR: write(/tmp/image.part) error(No space left on device)\n");
  EXPECT_FALSE(root.exists("/tmp/image.part"));
  EXPECT_EQ(root.shell_lines(), lines());
}

TEST_F(ubi_part_test, a_writer_that_fails_ends_the_walk_and_leaves_the_environment) {
  root.answer("ubiattach", {.status = 1});
  log_level = 4;
  EXPECT_EQ(write(image_of({archive, oem})), 0);
  EXPECT_TRUE(
      root.printed().ends_with("ERROR: Failed to attach /dev/mtd10 to ubi0\n"
                               "INFO: Wrote 0 image parts, skipped 0\n"));
  EXPECT_EQ(root.env()["bootbank"], "1");
}

TEST_F(ubi_part_test, a_table_without_the_carrier_is_named_and_nothing_else) {
  mtd_config_table[10].part_name = "nand";
  const sender line(archive.contents);
  for (const part& each : {archive, ubifs, oem}) {
    EXPECT_FALSE(ubi_part_write_fd(mtd_config_table[12], octets(each.header()), line.fd(), true, nullptr));
    EXPECT_EQ(root.printed(), "ERROR: mtd_get_by_type 4 failed\n");
  }
  EXPECT_EQ(write(archive.whole()), 0);
  EXPECT_EQ(root.printed(), archive.info() + "ERROR: mtd_get_by_type 4 failed\n");
  EXPECT_EQ(root.shell_lines(), lines());
}

}  // namespace
