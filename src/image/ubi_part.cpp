// See ubi_part.h. Paths: /tmp/image.part.
#include "image/ubi_part.h"

#include <unistd.h>

#include "flash/clean_check.h"
#include "image/header.h"
#include "ubi/format.h"
#include "ubi/python_writer.h"
#include "ubi/volume_writers.h"
#include "util/file_create.h"
#include "util/log.h"

namespace {

constexpr const char* part_file = "/tmp/image.part";
constexpr const char* oem_directory = "/cfg/";
constexpr const char* oem_file = "hidden.oem.xml";
constexpr const char* oem_permission = "644";

// Types that the clean UBI partition is formatted for, or refused to.
bool needs_formatted_flash(uint32_t type) {
  return type >= image_contents_rootfs_ubifs_16keb && type <= image_contents_rootfs_ubifs_128keb;
}

bool format_with_header_sizes(const char* ubi_dev_name, const uint8_t* header) {
  return ubi_format(ubi_dev_name, image_header_get(header, image_field_rootfs_size_kib),
                    image_header_get(header, image_field_total_size_kib)) != 0;
}

enum class readiness { ready, refused, not_formatted };

readiness make_ready(const mtd_partition& row, const uint8_t* header, bool format_allowed) {
  const uint32_t type = image_header_get(header, image_field_contents_type);
  const char* ubi_dev_name = mtd_type_string[row.type];
  if (!needs_formatted_flash(type)) {
    return readiness::ready;
  }
  if (mtd_get_by_name(ubi_dev_name) == nullptr) {
    log_printf(level_error, "mtd_get_by_type %d failed\n", row.type);
    return readiness::refused;
  }
  if (ubi_is_clean(ubi_dev_name) == 0) {
    return readiness::ready;
  }
  if (type == image_contents_oem_defaults) {
    log_printf(level_error, "Cannot write OEM defaults file to clean flash\n");
    return readiness::refused;
  }
  if (format_allowed && !format_with_header_sizes(ubi_dev_name, header)) {
    return readiness::not_formatted;
  }
  return readiness::ready;
}

bool install_oem_file(const mtd_partition& row, const char* ubi_dev_name) {
  return ubi_write_file_into_fs(row.dev_name, ubi_dev_name, part_file, oem_directory, oem_file,
                                oem_permission) != 0;
}

}  // namespace

bool ubi_part_make_ready(const mtd_partition& row, const uint8_t* header, bool format_allowed) {
  return make_ready(row, header, format_allowed) == readiness::ready;
}

bool ubi_part_write(const mtd_partition& row, const uint8_t* header, const uint8_t* contents) {
  const uint32_t length = image_header_get(header, image_field_contents_length);
  const char* ubi_dev_name = mtd_type_string[row.type];
  if (!ubi_part_make_ready(row, header, true)) {
    return false;
  }
  switch (image_header_get(header, image_field_contents_type)) {
    case image_contents_oem_defaults: {
      const bool stored =
          file_create_from_buffer(part_file, contents, length) && install_oem_file(row, ubi_dev_name);
      unlink(part_file);
      return stored;
    }
    case image_contents_rootfs_ubifs_16keb:
    case image_contents_rootfs_ubifs_128keb:
      return ubi_write_buffer_ubifs(row.dev_name, ubi_dev_name, contents, length) != 0;
    case image_contents_python_setup:
      return ubi_write_buffer_python_fs_tar_lzma(row.dev_name, ubi_dev_name, contents, length) != 0;
    default:
      return ubi_write_buffer_tar_lzma(row.dev_name, ubi_dev_name, contents, length) != 0;
  }
}

bool ubi_part_write_fd(const mtd_partition& row, const uint8_t* header, int fd, bool format_allowed,
                       uint64_t* checksum) {
  const uint32_t length = image_header_get(header, image_field_contents_length);
  const char* ubi_dev_name = mtd_type_string[row.type];
  const readiness state = make_ready(row, header, format_allowed);
  if (state != readiness::ready) {
    if (state == readiness::not_formatted) {
      log_printf(level_error, "Failed to format %s\n", ubi_dev_name);
    }
    return false;
  }
  const int alone = format_allowed ? 1 : 0;  // nobody has prepared the system, nobody will finalize it
  switch (image_header_get(header, image_field_contents_type)) {
    case image_contents_oem_defaults: {
      const bool stored = file_create_from_fd(part_file, fd, nullptr, length, checksum) &&
                          install_oem_file(row, ubi_dev_name);
      unlink(part_file);
      if (!stored) {
        log_printf(level_error, "Failed to write OEM defaults\n");
      }
      return stored;
    }
    case image_contents_rootfs_ubifs_16keb:
    case image_contents_rootfs_ubifs_128keb:
      return ubi_write_buffer_ubifs_fd(row.dev_name, ubi_dev_name, fd, nullptr, length, alone, checksum) != 0;
    case image_contents_python_setup:
      return ubi_write_buffer_python_fs_tar_lzma_fd(row.dev_name, ubi_dev_name, fd, nullptr, length, checksum,
                                                    alone) != 0;
    default:
      return ubi_write_buffer_tar_lzma_fd(row.dev_name, ubi_dev_name, fd, nullptr, length, checksum) != 0;
  }
}
