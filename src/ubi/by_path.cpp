// Finding the row of a volume's path.
#include "ubi/by_path.h"

#include <cstring>

#include "ubi/device.h"
#include "ubi/python_writer.h"
#include "ubi/volume_writers.h"
#include "util/log.h"

namespace {

// Result: the volume's row, or null after the trace of `writer` and an error.
const mtd_partition* find_volume(const char* writer, const char* mtd_dev_name, const char* ubi_dev_name) {
  const mtd_partition* row = mtd_get_by_dev_name(mtd_dev_name);
  if (row != nullptr && strcmp(ubi_device_of(*row), ubi_dev_name) == 0) {
    return row;
  }
  log_printf(level_trace, "%s: mtd_dev_name=%s ubi_dev_name=%s\n", writer, mtd_dev_name, ubi_dev_name);
  if (row == nullptr) {
    log_printf(level_error, "No entry in mtd table for %s\n", mtd_dev_name);
  } else {
    log_printf(level_error, "Invalid ubi device=%s\n", ubi_dev_name);
  }
  return nullptr;
}

}  // namespace

bool ubi_write_buffer_ubifs(const char* mtd_dev_name, const char* ubi_dev_name, const uint8_t* buffer,
                            size_t size) {
  const mtd_partition* volume = find_volume(__func__, mtd_dev_name, ubi_dev_name);
  return volume != nullptr && ubi_write_buffer_ubifs(*volume, buffer, size);
}

bool ubi_write_buffer_ubifs_fd(const char* mtd_dev_name, const char* ubi_dev_name, int fd,
                               const uint8_t* header, uint32_t length, bool change_schema,
                               uint64_t* checksum) {
  const mtd_partition* volume = find_volume(__func__, mtd_dev_name, ubi_dev_name);
  return volume != nullptr && ubi_write_buffer_ubifs_fd(*volume, fd, header, length, change_schema, checksum);
}

bool ubi_write_buffer_tar_lzma(const char* mtd_dev_name, const char* ubi_dev_name, const uint8_t* buffer,
                               size_t size) {
  const mtd_partition* volume = find_volume(__func__, mtd_dev_name, ubi_dev_name);
  return volume != nullptr && ubi_write_buffer_tar_lzma(*volume, buffer, size);
}

bool ubi_write_buffer_tar_lzma_fd(const char* mtd_dev_name, const char* ubi_dev_name, int fd,
                                  const uint8_t* header, uint32_t length, uint64_t* checksum) {
  const mtd_partition* volume = find_volume(__func__, mtd_dev_name, ubi_dev_name);
  return volume != nullptr && ubi_write_buffer_tar_lzma_fd(*volume, fd, header, length, checksum);
}

bool ubi_write_buffer_python_fs_tar_lzma(const char* mtd_dev_name, const char* ubi_dev_name,
                                         const uint8_t* buffer, size_t size) {
  const mtd_partition* volume = find_volume(__func__, mtd_dev_name, ubi_dev_name);
  return volume != nullptr && ubi_write_buffer_python_fs_tar_lzma(*volume, buffer, size);
}

bool ubi_python_fs_tar_lzma_fd_prepare(const char* mtd_dev_name, const char* ubi_dev_name) {
  const mtd_partition* volume = find_volume(__func__, mtd_dev_name, ubi_dev_name);
  return volume != nullptr && ubi_python_fs_tar_lzma_fd_prepare(*volume);
}

bool ubi_write_buffer_python_fs_tar_lzma_fd(const char* mtd_dev_name, const char* ubi_dev_name, int fd,
                                            const uint8_t* header, uint32_t length, uint64_t* checksum,
                                            bool self_contained) {
  const mtd_partition* volume = find_volume(__func__, mtd_dev_name, ubi_dev_name);
  return volume != nullptr &&
         ubi_write_buffer_python_fs_tar_lzma_fd(*volume, fd, header, length, checksum, self_contained);
}

bool ubi_python_fs_tar_lzma_fd_finalize(const char* mtd_dev_name, const char* ubi_dev_name) {
  const mtd_partition* volume = find_volume(__func__, mtd_dev_name, ubi_dev_name);
  return volume != nullptr && ubi_python_fs_tar_lzma_fd_finalize(*volume);
}

bool ubi_write_file_into_fs(const char* mtd_dev_name, const char* ubi_dev_name, const char* src_file,
                            const char* dst_dir, const char* dst_file, const char* dst_perm) {
  const mtd_partition* volume = find_volume(__func__, mtd_dev_name, ubi_dev_name);
  return volume != nullptr && ubi_write_file_into_fs(*volume, src_file, dst_dir, dst_file, dst_perm);
}

bool ubi_write_file(const char* mtd_dev_name, const char* ubi_dev_name, const char* filename) {
  const mtd_partition* volume = find_volume(__func__, mtd_dev_name, ubi_dev_name);
  return volume != nullptr && ubi_write_file(*volume, filename);
}
