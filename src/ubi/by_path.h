// The writers of ubi/volume_writers.h and ubi/python_writer.h for callers that have a volume's path instead
// of its row. A path without a row, or a UBI device that is not the one of the volume, is an error before
// anything is attached; all else is as described there.
#pragma once

#include <cstddef>
#include <cstdint>

bool ubi_write_buffer_ubifs(const char* mtd_dev_name, const char* ubi_dev_name, const uint8_t* buffer,
                            size_t size);
bool ubi_write_buffer_ubifs_fd(const char* mtd_dev_name, const char* ubi_dev_name, int fd,
                               const uint8_t* header, uint32_t length, bool change_schema,
                               uint64_t* checksum);
bool ubi_write_buffer_tar_lzma(const char* mtd_dev_name, const char* ubi_dev_name, const uint8_t* buffer,
                               size_t size);
bool ubi_write_buffer_tar_lzma_fd(const char* mtd_dev_name, const char* ubi_dev_name, int fd,
                                  const uint8_t* header, uint32_t length, uint64_t* checksum);
bool ubi_write_buffer_python_fs_tar_lzma(const char* mtd_dev_name, const char* ubi_dev_name,
                                         const uint8_t* buffer, size_t size);
bool ubi_python_fs_tar_lzma_fd_prepare(const char* mtd_dev_name, const char* ubi_dev_name);
bool ubi_write_buffer_python_fs_tar_lzma_fd(const char* mtd_dev_name, const char* ubi_dev_name, int fd,
                                            const uint8_t* header, uint32_t length, uint64_t* checksum,
                                            bool self_contained);
bool ubi_python_fs_tar_lzma_fd_finalize(const char* mtd_dev_name, const char* ubi_dev_name);
bool ubi_write_file_into_fs(const char* mtd_dev_name, const char* ubi_dev_name, const char* src_file,
                            const char* dst_dir, const char* dst_file, const char* dst_perm);
bool ubi_write_file(const char* mtd_dev_name, const char* ubi_dev_name, const char* filename);
