// Making an image from files.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kesto/part.h"

struct build_order {
  std::string output;
  std::vector<part_order> parts;
};

/// Builds the image with all parts in their order and tells its size on standard output. Warns of parts that
/// no device takes. Result: false after an error; what was in place of the image is then untouched.
bool image_builder_build(const build_order& order);
