// Making flash ready for an image whose headers are known, and the steps after it was written. Tools run:
// those of flash/erase, ubi/attachment, ubi/format, ubi/schema and ubi/python_writer.
#include "image/preparation.h"

#include <fcntl.h>
#include <unistd.h>

#include "flash/erase.h"
#include "image/destination.h"
#include "image/header.h"
#include "image/ubi_part.h"
#include "ubi/attachment.h"
#include "ubi/device.h"
#include "ubi/python_writer.h"
#include "ubi/schema.h"
#include "util/log.h"
#include "util/unique_fd.h"

namespace {

// Reads each saved header and hands it to `act`, until one says that none follows. Result: false when a
// header could not be read or `act` failed.
template <typename Act>
bool for_each_header(const char* header_path, Act act) {
  const unique_fd headers(open(header_path, O_RDONLY | O_CLOEXEC));
  uint8_t header[image_header_size];
  do {
    if (!headers ||
        read(headers.get(), header, image_header_size) != static_cast<ssize_t>(image_header_size)) {
      log_printf(level_error, "Failed to read downloaded image information\n");
      return false;
    }
    if (!act(header)) {
      return false;
    }
  } while (image_header_get(header, image_field_next_header_flag) != 0);
  return true;
}

bool header_is_good(uint8_t* header) {
  if (!image_header_verify(header, image_header_size, true)) {
    log_printf(level_error, "Bad image header\n");
    return false;
  }
  if (!image_validate_destination(image_header_get(header, image_field_contents_type))) {
    log_printf(level_error, "Bad image destination\n");
    return false;
  }
  return true;
}

bool erase_partition(const mtd_partition& row) {
  log_printf(level_verbose, "flash_erase_whole_partition mtd %s\n", row.dev_name);
  // Only nand is unlocked here, whatever the row's protect flag says. A locked partition of serial flash
  // stays as it is, and many an erase tool calls that a success.
  const bool unlock = row.type == mtd_type_nand;
  return flash_erase_whole_partition(row.dev_name, row.type, unlock ? 1 : 0);
}

bool change_schema(const mtd_partition& volume) {
  log_printf(level_verbose, "ubi_write_buffer_ubifs_fd mtd %s\n", volume.dev_name);
  const ubi_attachment ubi(ubi_device_of(volume), ubi_attachment::on_exit::detach);
  return ubi.attached() && ubi_change_rootfs_schema_if_needed(volume);
}

bool prepare_volume(const mtd_partition& volume, uint32_t type, const uint8_t* header) {
  if (!ubi_part_make_ready(volume, header)) {
    return false;
  }
  switch (type) {
    case image_contents_rootfs_ubifs_16keb:
    case image_contents_rootfs_ubifs_128keb:
      return change_schema(volume);
    case image_contents_python_setup:
      return ubi_python_fs_tar_lzma_fd_prepare(volume);
    default:
      return true;
  }
}

bool prepare_part(uint32_t type, mtd_banks bank, const uint8_t* header) {
  if (image_skips_boot_env(type)) {
    return true;
  }
  const mtd_partition* row = image_find_destination("image_prepare_system", type, bank);
  if (row == nullptr) {
    return false;
  }
  return image_destination_is_ubi(*row) ? prepare_volume(*row, type, header) : erase_partition(*row);
}

bool finalize_part(uint32_t type, mtd_banks bank) {
  if (type != image_contents_python_setup) {
    return true;
  }
  const mtd_partition* row = image_find_destination("image_finalize_system", type, bank);
  return row != nullptr && ubi_python_fs_tar_lzma_fd_finalize(*row);
}

}  // namespace

bool image_prepare_system(const char* header_path, mtd_banks bank, uint32_t mask) {
  log_printf(level_trace, "%s:\n", __func__);
  return for_each_header(header_path, [=](uint8_t* header) {
    const uint32_t type = image_header_get(header, image_field_contents_type);
    log_printf(level_verbose, "Preparing system for %s\n", image_contents_name(type));
    return header_is_good(header) && (image_mask_skips(mask, type) || prepare_part(type, bank, header));
  });
}

bool image_finalize_system(const char* header_path, mtd_banks bank, uint32_t mask) {
  log_printf(level_trace, "%s:\n", __func__);
  return for_each_header(header_path, [=](uint8_t* header) {
    const uint32_t type = image_header_get(header, image_field_contents_type);
    return header_is_good(header) && (image_mask_skips(mask, type) || finalize_part(type, bank));
  });
}
