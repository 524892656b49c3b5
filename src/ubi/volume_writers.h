// Whole contents into volumes: UBIFS images, root file system archives, single files. Each attaches the UBI
// device `ubi_dev_name`, works on the volume `mtd_dev_name` (its path), and gives both back on every way out.
// Results: 1, or 0 after an error.
//
// The stream forms take `length` bytes from `fd`, behind the 256 bytes of `header` unless that is null; a
// sender silent for 3 seconds fails; `*checksum` (unless null) gets the image checksum of the received bytes
// in its low 32 bits. A tool that fails after it has taken its input goes unnoticed.
#pragma once

#include <cstddef>
#include <cstdint>

/// A raw UBIFS image, after the bank schema was changed if the volume needs it.
int ubi_write_buffer_ubifs(const char* mtd_dev_name, const char* ubi_dev_name, const uint8_t* buffer,
                           size_t size);
int ubi_write_buffer_ubifs_fd(const char* mtd_dev_name, const char* ubi_dev_name, int fd,
                              const uint8_t* header, uint32_t length, int change_schema, uint64_t* checksum);

/// An xz tar archive of a root file system into the emptied volume, likewise.
int ubi_write_buffer_tar_lzma(const char* mtd_dev_name, const char* ubi_dev_name, const uint8_t* buffer,
                              size_t size);
int ubi_write_buffer_tar_lzma_fd(const char* mtd_dev_name, const char* ubi_dev_name, int fd,
                                 const uint8_t* header, uint32_t length, uint64_t* checksum);

/// Installs one file into the volume's file system. `dst_dir` carries its own slashes ("/cfg/"); `dst_perm`
/// is octal ("644").
int ubi_write_file_into_fs(const char* mtd_dev_name, const char* ubi_dev_name, const char* src_file,
                           const char* dst_dir, const char* dst_file, const char* dst_perm);

/// A volume image in a file into the volume.
int ubi_write_file(const char* mtd_dev_name, const char* ubi_dev_name, const char* filename);
