// The Python installation inside a volume's file system, in /python/: replaced by an archive while the
// packages that the user has installed are kept. Conventions and results are those of ubi/volume_writers.h.
#pragma once

#include <cstddef>
#include <cstdint>

/// All of it: checks the space, saves the packages, unpacks, puts the packages back.
int ubi_write_buffer_python_fs_tar_lzma(const char* mtd_dev_name, const char* ubi_dev_name,
                                        const uint8_t* buffer, size_t size);

/// The first steps only, for an installation whose archive arrives later: space check and saving of packages.
int ubi_python_fs_tar_lzma_fd_prepare(const char* mtd_dev_name, const char* ubi_dev_name);

/// Unpacks from a stream; with `self_contained` with the steps before and after.
int ubi_write_buffer_python_fs_tar_lzma_fd(const char* mtd_dev_name, const char* ubi_dev_name, int fd,
                                           const uint8_t* header, uint32_t length, uint64_t* checksum,
                                           int self_contained);

/// The last step only: puts the saved packages back.
int ubi_python_fs_tar_lzma_fd_finalize(const char* mtd_dev_name, const char* ubi_dev_name);

/// Result: the free bytes of the file system at `path` less a margin of 64 KiB - 1 (0 when there is less);
/// all bits set when they cannot be told, which passes for enough. 32-bit arithmetic.
// NOLINTNEXTLINE(readability-identifier-naming): the name that the product's documents use
uint32_t getAvailableSpace(const char* path);
