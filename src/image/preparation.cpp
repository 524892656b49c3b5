// See preparation.h.
#include "image/preparation.h"

#include <fcntl.h>
#include <unistd.h>

#include "flash/clean_check.h"
#include "flash/raw_io.h"
#include "image/destination.h"
#include "image/header.h"
#include "image/ubi_part.h"
#include "mtd/partition_table.h"
#include "ubi/python_writer.h"
#include "ubi/schema.h"
#include "ubi/volume.h"
#include "util/log.h"
#include "util/unique_fd.h"

namespace {

bool read_header(const unique_fd& headers, uint8_t* header) {
  if (!headers || read(headers.get(), header, image_header_size) != static_cast<ssize_t>(image_header_size)) {
    log_printf(level_error, "Failed to read downloaded image information\n");
    return false;
  }
  return true;
}

bool header_is_good(uint8_t* header) {
  if (image_header_verify(header, image_header_size, 1) == 0) {
    log_printf(level_error, "Bad image header\n");
    return false;
  }
  if (image_validate_destination(image_header_get(header, image_field_contents_type)) == 0) {
    log_printf(level_error, "Bad image destination\n");
    return false;
  }
  return true;
}

// Hands each saved header to `before` as read and, when it is good and selected, to `act`. Result: false when
// one failed.
template <typename Before, typename Act>
bool for_each_header(const char* header_path, uint32_t mask, Before before, Act act) {
  const unique_fd headers(open(header_path, O_RDONLY | O_CLOEXEC));
  uint8_t header[image_header_size];
  do {
    if (!read_header(headers, header)) {
      return false;
    }
    const uint32_t type = image_header_get(header, image_field_contents_type);
    before(type);
    if (!header_is_good(header) || (!image_mask_skips(mask, type) && !act(type, header))) {
      return false;
    }
  } while (image_header_get(header, image_field_next_header_flag) != 0);
  return true;
}

bool change_schema(const mtd_partition& row) {
  const char* ubi_dev_name = mtd_type_string[row.type];
  log_printf(level_verbose, "ubi_write_buffer_ubifs_fd mtd %s\n", row.dev_name);
  const bool changed = ubi_attach(ubi_dev_name) != 0 && ubi_change_rootfs_schema_if_needed(row.dev_name) != 0;
  ubi_detach(ubi_dev_name);
  return changed;
}

bool prepare_volume(const mtd_partition& row, uint32_t type, const uint8_t* header) {
  if (!ubi_part_make_ready(row, header, true)) {
    return false;
  }
  switch (type) {
    case image_contents_rootfs_ubifs_16keb:
    case image_contents_rootfs_ubifs_128keb:
      return change_schema(row);
    case image_contents_python_setup:
      return ubi_python_fs_tar_lzma_fd_prepare(row.dev_name, mtd_type_string[row.type]) != 0;
    default:
      return true;
  }
}

bool prepare_part(uint32_t type, int bank, const uint8_t* header) {
  if (type == image_contents_boot_env && ubi_is_clean("ubi0") == 0) {
    log_printf(level_note, "Skipping boot_env image because flash is not clean\n");
    return true;
  }
  const mtd_partition* row = image_find_destination("image_prepare_system", type, bank);
  if (row == nullptr) {
    return false;
  }
  if (image_destination_is_ubi(*row)) {
    return prepare_volume(*row, type, header);
  }
  log_printf(level_verbose, "flash_erase_whole_partition mtd %s\n", row->dev_name);
  // Protect flag and flash type stand in each other's places: the boards' serial flash is erased without the
  // lock bracket here, and nand, which has no locks, ignores it.
  return flash_erase_whole_partition(row->dev_name, row->protect, row->type) != 0;
}

const char* type_name(uint32_t type) {
  return type < image_contents_count ? contents_type_names[type] : "unknown";
}

}  // namespace

int image_prepare_system(const char* header_path, int bank, uint32_t mask) {
  log_printf(level_trace, "%s:\n", __func__);
  const auto announce = [](uint32_t type) {
    log_printf(level_verbose, "Preparing system for %s\n", type_name(type));
  };
  const auto prepare = [bank](uint32_t type, const uint8_t* header) {
    return prepare_part(type, bank, header);
  };
  return for_each_header(header_path, mask, announce, prepare) ? 1 : 0;
}

int image_finalize_system(const char* header_path, int bank, uint32_t mask) {
  log_printf(level_trace, "%s:\n", __func__);
  const auto finalize = [bank](uint32_t type, const uint8_t* /*header*/) {
    if (type != image_contents_python_setup) {
      return true;
    }
    const mtd_partition* row = image_find_destination("image_finalize_system", type, bank);
    return row != nullptr &&
           ubi_python_fs_tar_lzma_fd_finalize(row->dev_name, mtd_type_string[row->type]) != 0;
  };
  return for_each_header(
             header_path, mask, [](uint32_t /*type*/) {}, finalize)
             ? 1
             : 0;
}
