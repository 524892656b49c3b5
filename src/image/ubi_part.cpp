// Choosing the writer of a part, and what has to be done before it. Paths: /tmp/image.part.
#include "image/ubi_part.h"

#include <unistd.h>

#include "flash/clean_check.h"
#include "image/header.h"
#include "ubi/device.h"
#include "ubi/format.h"
#include "ubi/python_writer.h"
#include "ubi/volume_writers.h"
#include "util/file_create.h"
#include "util/log.h"

namespace {

constexpr const char* part_file = "/tmp/image.part";

// Types that need a formatted UBI partition.
bool needs_formatted_flash(uint32_t type) {
  return type >= image_contents_rootfs_ubifs_16keb && type <= image_contents_rootfs_ubifs_128keb;
}

// The UBI partition as a part finds it.
enum class flash_state { ready, to_be_formatted, refused };

// Result: refused after an error.
flash_state look_at_flash(const mtd_partition& volume, const uint8_t* header) {
  const uint32_t type = image_header_get(header, image_field_contents_type);
  const char* ubi_dev_name = ubi_device_of(volume);
  if (!needs_formatted_flash(type)) {
    return flash_state::ready;
  }
  if (mtd_get_by_name(ubi_dev_name) == nullptr) {
    log_printf(level_error, "mtd_get_by_type %d failed\n", volume.type);
    return flash_state::refused;
  }
  if (!ubi_is_clean(ubi_dev_name)) {
    return flash_state::ready;
  }
  if (type == image_contents_oem_defaults) {
    log_printf(level_error, "Cannot write OEM defaults file to clean flash\n");
    return flash_state::refused;
  }
  return flash_state::to_be_formatted;
}

bool format_with_header_sizes(const mtd_partition& volume, const uint8_t* header) {
  return ubi_format(ubi_device_of(volume), image_header_get(header, image_field_rootfs_size_kib),
                    image_header_get(header, image_field_total_size_kib));
}

// `store` puts the contents into the temporary file, which never stays.
template <typename Store>
bool write_oem_defaults(const mtd_partition& volume, Store store) {
  const bool written = store() && ubi_write_file_into_fs(volume, part_file, "/cfg/", "hidden.oem.xml", "644");
  unlink(part_file);
  return written;
}

}  // namespace

bool ubi_part_make_ready(const mtd_partition& volume, const uint8_t* header) {
  const flash_state state = look_at_flash(volume, header);
  return state == flash_state::ready ||
         (state == flash_state::to_be_formatted && format_with_header_sizes(volume, header));
}

bool ubi_part_write(const mtd_partition& volume, const uint8_t* header, const uint8_t* contents) {
  const uint32_t length = image_header_get(header, image_field_contents_length);
  if (!ubi_part_make_ready(volume, header)) {
    return false;
  }
  switch (image_header_get(header, image_field_contents_type)) {
    case image_contents_oem_defaults:
      return write_oem_defaults(volume, [=] { return file_create_from_buffer(part_file, contents, length); });
    case image_contents_rootfs_ubifs_16keb:
    case image_contents_rootfs_ubifs_128keb:
      return ubi_write_buffer_ubifs(volume, contents, length);
    case image_contents_python_setup:
      return ubi_write_buffer_python_fs_tar_lzma(volume, contents, length);
    default:
      return ubi_write_buffer_tar_lzma(volume, contents, length);
  }
}

bool ubi_part_write_fd(const mtd_partition& volume, const uint8_t* header, int fd, bool format_allowed,
                       uint64_t* checksum) {
  const uint32_t length = image_header_get(header, image_field_contents_length);
  const flash_state state = look_at_flash(volume, header);
  if (state == flash_state::refused) {
    return false;
  }
  if (state == flash_state::to_be_formatted && format_allowed && !format_with_header_sizes(volume, header)) {
    log_printf(level_error, "Failed to format %s\n", ubi_device_of(volume));
    return false;
  }
  switch (image_header_get(header, image_field_contents_type)) {
    case image_contents_oem_defaults: {
      const bool written = write_oem_defaults(
          volume, [=] { return file_create_from_fd(part_file, fd, nullptr, length, checksum); });
      if (!written) {
        log_printf(level_error, "Failed to write OEM defaults\n");
      }
      return written;
    }
    case image_contents_rootfs_ubifs_16keb:
    case image_contents_rootfs_ubifs_128keb:
      return ubi_write_buffer_ubifs_fd(volume, fd, nullptr, length, format_allowed, checksum);
    case image_contents_python_setup:
      return ubi_write_buffer_python_fs_tar_lzma_fd(volume, fd, nullptr, length, checksum, format_allowed);
    default:
      return ubi_write_buffer_tar_lzma_fd(volume, fd, nullptr, length, checksum);
  }
}
