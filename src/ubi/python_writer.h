// The Python installation inside a volume's file system, in /python/: replaced by an archive, while the
// packages that the user has installed are kept. Stream forms and results are those of ubi/volume_writers.h.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mtd/partition_table.h"

/// All of it: checks the space, saves the packages, unpacks, puts the packages back.
bool ubi_write_buffer_python_fs_tar_lzma(const mtd_partition& volume, const uint8_t* buffer, size_t size);

/// The steps before the unpacking, for an installation whose archive comes later: checks the space, saves the
/// packages in /tmp/site-packages and removes the old installation.
bool ubi_python_fs_tar_lzma_fd_prepare(const mtd_partition& volume);

/// Unpacks from a stream; if `self_contained`, with the steps before and after.
bool ubi_write_buffer_python_fs_tar_lzma_fd(const mtd_partition& volume, int fd, const uint8_t* header,
                                            uint32_t length, uint64_t* checksum, bool self_contained);

/// The step after the unpacking: puts the saved packages back.
bool ubi_python_fs_tar_lzma_fd_finalize(const mtd_partition& volume);

/// Result: the free bytes of the file system at `path` less a margin of 64 KiB - 1 (0 when there is less);
/// all bits set when they cannot be told, which passes for enough. 32-bit arithmetic.
// NOLINTNEXTLINE(readability-identifier-naming): the name that the product's documents use
uint32_t getAvailableSpace(const char* path);
