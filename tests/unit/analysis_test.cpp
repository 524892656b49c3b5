// Analysis of partitions where no command leads: JFFS2, kinds that hold nothing known, read errors, files in
// volumes.
#include "analysis/partition_analysis.h"

#include <zlib.h>

#include "analysis/jffs2_analysis.h"
#include "analysis/product_info.h"
#include "analysis/ubifs_analysis.h"
#include "flash/clean_check.h"
#include "ubi_test.h"

namespace {

std::string text_of(const char* field, size_t size) {
  return {field, strnlen(field, size)};
}

class analysis_test : public ubi_test {
 protected:
  analysis_test() { root.set_partitions({{"param_space", 0x10000, 0x10000}, {"ubi0", 0x20000, 0x20000}}); }

  int analyze(int image, int format) { return flash_analyze("/dev/mtd0", image, format, &record_); }

  flash_analysis record_ = {};
};

// ---------------------------------------------------------------------------------------------- JFFS2

class jffs2_test : public analysis_test {
 protected:
  int analyze_dump(const std::string& output) {
    root.drop_rules();
    root.answer("jffs2dump", {.times = 1, .out = output});
    return flash_analyze_jffs2("/dev/mtd0", &record_);
  }
  static inline const std::string dump = "/usr/sbin/jffs2dump -v -c /dev/mtd0 | /bin/grep \"Empty space:\"";
};

TEST_F(jffs2_test, live_data_is_what_is_neither_empty_nor_dirty) {
  EXPECT_EQ(analyze_dump("Empty space: 40000, dirty space: 10000\n"), 1);
  EXPECT_EQ(root.shell_lines(), lines({dump}));
  EXPECT_EQ(record_.size, 65536U - 40000);
  EXPECT_EQ(record_.crc, 0U);
  EXPECT_EQ(text_of(record_.version, sizeof record_.version), "-");
  EXPECT_EQ(text_of(record_.code, sizeof record_.code), "-");
}

TEST_F(jffs2_test, without_live_data_it_is_not_recognised) {
  EXPECT_EQ(analyze_dump("Empty space: 65535, dirty space: 1\n"), 0);
  EXPECT_EQ(analyze_dump("Empty space: 65536, dirty space: 0\n"), 0);
  EXPECT_EQ(analyze_dump("Empty space: 4294967295, dirty space: 4294967295\n"), 0);
  EXPECT_EQ(analyze_dump("Empty space: 65534, dirty space: 1\n"), 1);
}

TEST_F(jffs2_test, numbers_that_are_missing_count_as_zero) {
  EXPECT_EQ(analyze_dump("Empty space: none\n"), 1);
  EXPECT_EQ(record_.size, 65536U);
  EXPECT_EQ(analyze_dump("Empty space: 65536\n"), 0);
}

TEST_F(jffs2_test, only_the_first_line_counts) {
  EXPECT_EQ(analyze_dump("Empty space: 5, dirty space: 0\nEmpty space: 65536, dirty space: 0\n"), 1);
  EXPECT_EQ(record_.size, 65531U);
}

TEST_F(jffs2_test, output_without_the_line_is_not_recognised) {
  record_.crc = 1;
  EXPECT_EQ(analyze_dump("nothing of the kind\n"), 0);
  EXPECT_EQ(analyze_dump(""), 0);
  EXPECT_EQ(record_.crc, 0U);
  EXPECT_EQ(text_of(record_.version, sizeof record_.version), "-");
}

TEST_F(jffs2_test, a_device_that_tells_no_size_is_not_dumped) {
  root.fail_ioctl(0x80204D01, EINVAL);
  EXPECT_FALSE(flash_analyze_jffs2("/dev/mtd0", &record_));
  EXPECT_FALSE(flash_analyze_jffs2("/dev/mtd9", &record_));
  root.drop_rules();
  root.answer_ioctl(0x80204D01, std::string(32, '\0'));
  EXPECT_FALSE(flash_analyze_jffs2("/dev/mtd0", &record_)) << "nor one that has none";
  EXPECT_EQ(root.shell_lines(), lines());
}

TEST_F(jffs2_test, the_command_line_of_the_dump_is_told) {
  log_level = level_verbose;
  EXPECT_EQ(analyze_dump("Empty space: 1, dirty space: 0\n"), 1);
  EXPECT_EQ(root.printed(), "VERBOSE: flash_analyze_jffs2: popen(" + dump + ")\n");
}

TEST_F(jffs2_test, a_dump_that_cannot_be_started_is_an_error) {
  root.fail_call("posix_spawn", {.match = "jffs2dump", .error = ENOMEM, .result = 0});
  EXPECT_FALSE(flash_analyze_jffs2("/dev/mtd0", &record_));
  EXPECT_EQ(root.printed(),
            "ERROR: flash_analyze_jffs2: popen(" + dump + ") error(Cannot allocate memory)\n");
}

// -------------------------------------------------------------------------------------------- kinds and
// formats

TEST_F(analysis_test, file_systems_are_told_apart_by_their_format) {
  for (const int kind : {mtd_image_rootfs, mtd_image_filesystem, mtd_image_privatefs, mtd_image_userfs}) {
    root.answer("jffs2dump", {.times = 1, .out = "Empty space: 1, dirty space: 1\n"});
    EXPECT_EQ(analyze(kind, mtd_format_jffs2), 1) << kind;
    for (const int format : {mtd_format_raw, mtd_format_ubi, mtd_format_pri_ext2}) {
      EXPECT_EQ(analyze(kind, format), 0) << kind << " " << format;
    }
  }
}

TEST_F(analysis_test, other_kinds_hold_nothing_known) {
  for (const int kind : std::vector<int>{mtd_image_other, mtd_image_reserved, mtd_image_kernel_rootfs,
                                         mtd_image_ubi0, mtd_image_mmc0, mtd_image_count, -1}) {
    EXPECT_EQ(analyze(kind, mtd_format_raw), 0) << kind;
  }
  EXPECT_EQ(root.sequence(), lines());
}

TEST_F(analysis_test, a_device_that_is_not_there) {
  for (const int kind : {mtd_image_bootstrap, mtd_image_kernel, mtd_image_boot_env}) {
    EXPECT_FALSE(flash_analyze("/dev/mtd9", kind, mtd_format_raw, &record_)) << kind;
  }
  EXPECT_EQ(root.printed(), "");
}

TEST_F(analysis_test, what_the_record_held_before_does_not_matter) {
  const auto soil = [this] { memset(static_cast<void*>(&record_), 0xA5, sizeof record_); };
  root.answer("jffs2dump", {.times = 2, .out = "Empty space: 1, dirty space: 1\n"});
  soil();
  EXPECT_EQ(analyze(mtd_image_rootfs, mtd_format_jffs2), 1);
  EXPECT_EQ(record_.clean, 0);
  soil();
  mtd_partition row = mtd_config_table[9];
  row.dev_name = "/dev/mtd0";
  row.image = mtd_image_userfs;
  row.format = mtd_format_jffs2;
  EXPECT_TRUE(flash_analyze(row, &record_));
  EXPECT_EQ(record_.clean, 0);
  soil();
  EXPECT_EQ(analyze(mtd_image_other, mtd_format_raw), 0);
  EXPECT_EQ(record_.size, 0U);
  EXPECT_EQ(record_.crc, 0U);
  EXPECT_EQ(text_of(record_.version, sizeof record_.version), "");
  EXPECT_EQ(text_of(record_.code, sizeof record_.code), "");
}

// ------------------------------------------------------------------------------------------ first stage

TEST_F(analysis_test, a_bootstrap_has_a_size_that_the_processor_loads) {
  std::string flash = noise(0x10000);
  flash.replace(60, 64, std::string(64, '\0'));
  flash.replace(60, 27, "Solvantra TK10 Bootstrap v9");
  const auto found = [&](uint32_t size) {
    const std::string number = big_endian(size);
    flash.replace(20, 4, {number.rbegin(), number.rend()});
    root.write_file("/dev/mtd0", flash);
    record_ = {};
    return analyze(mtd_image_bootstrap, mtd_format_firmware);
  };
  for (const uint32_t size : {0U, 255U, 16385U, 0x01000100U})
    EXPECT_EQ(found(size), 0) << size;
  for (const uint32_t size : {256U, 0x1234U, 16384U}) {
    EXPECT_EQ(found(size), 1) << size;
    EXPECT_EQ(record_.size, size);
    EXPECT_EQ(record_.crc, plain_checksum(flash.substr(0, size)));
    EXPECT_EQ(text_of(record_.version, sizeof record_.version), "v9");
    EXPECT_EQ(text_of(record_.code, sizeof record_.code), "-");
  }
}

TEST_F(analysis_test, a_bootstrap_whose_name_cannot_be_read) {
  std::string flash = noise(0x10000);
  flash.replace(20, 4, std::string("\0\1\0\0", 4));
  root.write_file("/dev/mtd0", flash);
  EXPECT_EQ(analyze(mtd_image_bootstrap, mtd_format_firmware), 1);
  root.fail_call("read", {.match = "/dev/mtd0", .after = 1, .times = 1});
  EXPECT_EQ(analyze(mtd_image_bootstrap, mtd_format_firmware), 0);
}

// -------------------------------------------------------------------------------------- product information

class product_info_test : public analysis_test {
 protected:
  // Version and code behind "was", which the record held before.
  lines read(const std::string& content) {
    root.write_file("/tmp/product", content);
    return read_path("/tmp/product");
  }
  lines read_path(const char* path) {
    analysis_set_identity(&record_, "was", "was");
    product_info_read(path, &record_);
    return {text_of(record_.version, sizeof record_.version), text_of(record_.code, sizeof record_.code)};
  }
};

TEST_F(product_info_test, the_text_between_the_outer_quotes_cut_to_the_field) {
  EXPECT_EQ(read("VEXO_PRODUCT_VERSION=\"3.1.0.0R1\"\nVEXO_PRODUCT_CODE=\"AB\"\n"),
            lines({"3.1.0.0R1", "AB"}));
  EXPECT_EQ(read("export VEXO_PRODUCT_CODE='\"a\"b\"'"), lines({"was", "a\"b"}));
  EXPECT_EQ(read("VEXO_PRODUCT_VERSION=\"0123456789abcdefgh\"\nVEXO_PRODUCT_CODE=\"ABCDE\"\n"),
            lines({"0123456789abcdef", "ABCD"}));
}

TEST_F(product_info_test, a_file_that_cannot_be_opened_leaves_the_record_as_it_is) {
  root.write_file("/tmp/product", "VEXO_PRODUCT_CODE=\"AB\"\n");
  root.fail_call("fopen", {.match = "/tmp/product", .error = EMFILE});
  EXPECT_EQ(read_path("/tmp/product"), lines({"was", "was"}));
}

TEST_F(product_info_test, what_is_not_there_leaves_the_record_as_it_is) {
  for (const char* content : {"", "VEXO_PRODUCT_VERSION=\"\"\n", "VEXO_PRODUCT_VERSION=\"3\n",
                              "VEXO_PRODUCT_VERSION=3\n", "PRODUCT_CODE=\"AB\"\n"})
    EXPECT_EQ(read(content), lines({"was", "was"})) << content;
  EXPECT_EQ(read_path("/tmp"), lines({"was", "was"}));
  EXPECT_EQ(read_path("/tmp/none"), lines({"was", "was"}));
  const named_pipe pipe("/tmp/pipe");
  EXPECT_EQ(read_path("/tmp/pipe"), lines({"was", "was"})) << "nobody may ever write into it";
}

// --------------------------------------------------------------------------------------- boot environment

class environment_search_test : public analysis_test {
 protected:
  static std::string environment(size_t size) {
    std::string body = "bootbank=1" + std::string(2, '\0');
    body.resize(size - 4, '\xff');
    const auto crc = static_cast<uint32_t>(
        crc32(0, reinterpret_cast<const Bytef*>(body.data()), static_cast<uInt>(body.size())));
    return std::string(reinterpret_cast<const char*>(&crc), sizeof crc) + body;
  }
  // Looks for `content` at the start of an erased partition of `size` bytes.
  int search(size_t size, const std::string& content) {
    root.set_partitions({{"bootenv_1", size, 0x10000}});
    root.write_file("/dev/mtd0", content + std::string(size - content.size(), '\xff'));
    return analyze(mtd_image_boot_env, mtd_format_uboot_env);
  }
};

TEST_F(environment_search_test, the_smallest_environment_has_2048_bytes) {
  EXPECT_EQ(search(0x10000, environment(2048)), 1);
  EXPECT_EQ(record_.size, 16U);
  EXPECT_EQ(search(2048, environment(2048)), 1);
  EXPECT_EQ(search(0x10000, environment(1024)), 0);
  EXPECT_EQ(search(1024, environment(1024)), 0);
  EXPECT_EQ(search(2047, environment(2048).substr(0, 2047)), 0);
}

TEST_F(environment_search_test, a_partition_too_small_for_any_holds_none) {
  for (size_t size = 0; size <= 9; size++)
    EXPECT_EQ(search(size, std::string(size, 'e')), 0) << size;
  EXPECT_EQ(root.printed(), "");
}

TEST_F(analysis_test, every_analysis_is_traced_by_its_name) {
  const std::pair<mtd_images, const char*> cases[] = {
      {mtd_image_bootstrap, "TRACE: flash_analyze_bootstrap:\n"},
      {mtd_image_product_config, "TRACE: flash_analyze_prodcfg:\n"},
      {mtd_image_bootloader, "TRACE: flash_analyze_rom:\nTRACE: flash_analyze_rom: read() header\n"},
      {mtd_image_boot_env, "TRACE: flash_analyze_boot_env:\n"},
      {mtd_image_filesystem, "TRACE: flash_analyze_jffs2:\n"},
      {mtd_image_other, ""}};
  log_level = 7;
  for (const auto& [kind, trace] : cases) {
    EXPECT_FALSE(flash_analyze("/dev/mtd9", kind, mtd_format_jffs2, &record_)) << kind;
    EXPECT_EQ(root.printed(), trace);
  }
}

// ---------------------------------------------------------------------------------------------- read errors

TEST_F(analysis_test, a_read_error_in_the_middle_of_a_kernel) {
  const part kernel = {.type = 4, .contents = noise(5000)};
  root.write_file("/dev/mtd0", kernel.whole());
  root.fail_call("read", {.match = "/dev/mtd0", .error = EIO, .after = 3});
  EXPECT_EQ(analyze(mtd_image_kernel, mtd_format_uimage), 0);
  EXPECT_EQ(root.printed(), "ERROR: Error reading at /dev/mtd0 offset 0x00000900\n");
}

TEST_F(analysis_test, a_seek_error_in_the_middle_of_an_environment) {
  root.fail_call("lseek", {.match = "/dev/mtd0", .error = EINVAL, .after = 2});
  EXPECT_EQ(analyze(mtd_image_boot_env, mtd_format_uboot_env), 0);
  EXPECT_EQ(root.printed(), "ERROR: Error seeking to /dev/mtd0 offset 0x00000800\n");
}

TEST_F(analysis_test, the_steps_of_a_refusal_are_traced) {
  const part config = {.type = 8, .contents = noise(50)};
  std::string damaged = config.whole();
  damaged.back() = static_cast<char>(damaged.back() ^ 1);
  struct {
    std::string content;
    int kind;
    const char* step;
  } const cases[] = {
      {"short", mtd_image_kernel, "TRACE: flash_analyze_rom: read() header\n"},
      {std::string(256, 'x'), mtd_image_kernel, "TRACE: flash_analyze_rom: image_header_verify()\n"},
      {config.whole(), mtd_image_kernel, "TRACE: flash_analyze_rom: contents_type\n"},
      {damaged, mtd_image_config_loader, "TRACE: flash_analyze_rom: image_checksum()\n"},
  };
  log_level = 7;
  for (const auto& each : cases) {
    root.write_file("/dev/mtd0", each.content);
    EXPECT_EQ(analyze(each.kind, mtd_format_uimage), 0);
    EXPECT_TRUE(root.printed().ends_with(each.step)) << each.step;
  }
}

// --------------------------------------------------------------------------------------------- files in
// volumes

class file_within_test : public analysis_test {
 protected:
  file_within_test() {
    put_ubi0(in_use);
    std::filesystem::create_directories("/mnt/cfg");
  }
  int look() { return ubi_ubifs_analyze_file_within("vexo_private", "/cfg/", "hidden.oem.xml", &size_); }

  uint32_t size_ = 99;
  static inline const lines found = {attach, nodes, mount("vexo_private"), unmount, detach};
};

TEST_F(file_within_test, a_file_that_is_there_has_a_size) {
  root.write_file("/mnt/cfg/hidden.oem.xml", "12345");
  EXPECT_TRUE(look());
  EXPECT_EQ(size_, 5U);
  EXPECT_EQ(root.shell_lines(), found);
  EXPECT_TRUE(ubi_ubifs_analyze_file_within("vexo_private", "/cfg/", "hidden.oem.xml", nullptr));
  EXPECT_EQ(root.printed(), "");
}

TEST_F(file_within_test, a_file_is_not_there_without_its_volume) {
  EXPECT_FALSE(look());
  EXPECT_EQ(size_, 0U);
  EXPECT_EQ(root.shell_lines(), found);
  root.write_file("/mnt/cfg/hidden.oem.xml", "12345");
  root.answer("mount", {.times = 1, .status = 1});
  size_ = 99;
  EXPECT_FALSE(look());
  EXPECT_EQ(size_, 0U);
  root.answer("ubiattach", {.times = 1, .status = 1});
  EXPECT_FALSE(look());
  put_ubi0(erased);
  root.forget();
  EXPECT_FALSE(look());
  EXPECT_EQ(root.shell_lines(), lines()) << "erased flash is not attached";
}

TEST_F(file_within_test, a_volume_outside_the_table_is_an_error) {
  EXPECT_FALSE(ubi_ubifs_analyze_file_within("vexo", "/cfg/", "x", &size_));
  EXPECT_EQ(root.printed(), "ERROR: No partition entry in mtd table for vexo\n");
  flash_analysis record = {};
  EXPECT_FALSE(ubi_ubifs_analyze("/dev/ubi0_9", &record));
  EXPECT_EQ(root.printed(), "ERROR: No entry in mtd table for /dev/ubi0_9\n");
  EXPECT_EQ(text_of(record.version, sizeof record.version), "-");
  EXPECT_EQ(root.shell_lines(), lines());
}

TEST_F(file_within_test, questions_are_traced_with_their_arguments) {
  log_level = 7;
  EXPECT_FALSE(ubi_ubifs_analyze_file_within("vexo", "/cfg/", "x", nullptr));
  flash_analysis record = {};
  EXPECT_FALSE(ubi_ubifs_analyze("/dev/ubi0_9", &record));
  EXPECT_EQ(root.printed(),
            "TRACE: ubi_ubifs_analyze_file_within: part_name=vexo directory=/cfg/ filename=x\n"
            "ERROR: No partition entry in mtd table for vexo\n"
            "TRACE: ubi_ubifs_analyze: dev_name=/dev/ubi0_9\n"
            "ERROR: No entry in mtd table for /dev/ubi0_9\n");
}

TEST_F(file_within_test, the_analysis_of_a_volume_is_traced_first) {
  root.answer("ubiattach", {.status = 1});
  log_level = 7;
  flash_analysis record = {};
  EXPECT_FALSE(ubi_ubifs_analyze("/dev/ubi0_0", &record));
  EXPECT_TRUE(root.printed().starts_with("TRACE: ubi_ubifs_analyze: dev_name=/dev/ubi0_0\n"));
}

TEST_F(file_within_test, a_device_without_its_row_is_not_clean) {
  EXPECT_FALSE(ubi_is_clean("ubi1"));
  EXPECT_EQ(root.sleeps().size(), 0U);
}

}  // namespace
