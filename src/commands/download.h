// What the commands that download images and files have in common.
#pragma once

/// Where the headers of the first transfer wait for the second.
constexpr const char* image_download_header_path = "/tmp/image.rom";
/// Where downloaded files go that are named without a path.
constexpr const char* image_download_directory = "/tmp";
