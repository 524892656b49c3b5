// What the commands that download images and files have in common.
#pragma once

#include <cstdint>

#include "image/header.h"

constexpr uint32_t image_contents_bit(image_contents type) {
  return uint32_t{1} << type;
}

/// The contents types that a download installs: every type that has a destination.
constexpr uint32_t image_download_mask =
    image_contents_bit(image_contents_bootstrap) | image_contents_bit(image_contents_bootloader) |
    image_contents_bit(image_contents_boot_env) | image_contents_bit(image_contents_kernel) |
    image_contents_bit(image_contents_rootfs_jffs2_or_ext2) |
    image_contents_bit(image_contents_config_loader) | image_contents_bit(image_contents_rootfs_ubifs_16keb) |
    image_contents_bit(image_contents_oem_defaults) | image_contents_bit(image_contents_rootfs_tar_lzma) |
    image_contents_bit(image_contents_rootfs_ubifs_128keb) | image_contents_bit(image_contents_python_setup);
static_assert(image_download_mask == 0x7D3E);

/// Where the headers of the first transfer wait for the second.
constexpr const char* image_download_header_path = "/tmp/image.rom";
/// Where downloaded files go that are named without a path.
constexpr const char* image_download_directory = "/tmp";
