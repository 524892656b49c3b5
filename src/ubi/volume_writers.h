// Whole contents into a volume: UBIFS images, root file system archives, single files. Each writer attaches
// the UBI device of the volume, works, and gives everything back on every way out. Result: true, or false
// after an error.
//
// The stream forms take `length` bytes from `fd`, behind the 256 bytes of `header` unless that is null; a
// sender that is silent for 3 seconds fails; `*checksum` (unless null) gets the image checksum of the
// received bytes in its low 32 bits. A tool that fails after it has taken its input goes unnoticed.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mtd/partition_table.h"

/// A raw UBIFS image. The bank schema is changed first if the volume needs it; in the stream form only with
/// `change_schema`: before a network installation's second transfer it has been changed already.
bool ubi_write_buffer_ubifs(const mtd_partition& volume, const uint8_t* buffer, size_t size);
bool ubi_write_buffer_ubifs_fd(const mtd_partition& volume, int fd, const uint8_t* header, uint32_t length,
                               bool change_schema, uint64_t* checksum);

/// A tar archive of a root file system, compressed with xz. The bank schema is changed if need be, and the
/// volume emptied.
bool ubi_write_buffer_tar_lzma(const mtd_partition& volume, const uint8_t* buffer, size_t size);
bool ubi_write_buffer_tar_lzma_fd(const mtd_partition& volume, int fd, const uint8_t* header, uint32_t length,
                                  uint64_t* checksum);

/// Installs one file into the volume's file system. `dst_dir` carries its own slashes ("/cfg/"); `dst_perm`
/// is octal ("644").
bool ubi_write_file_into_fs(const mtd_partition& volume, const char* src_file, const char* dst_dir,
                            const char* dst_file, const char* dst_perm);

/// A volume image in a file. The bank schema is changed first if need be.
bool ubi_write_file(const mtd_partition& volume, const char* filename);
