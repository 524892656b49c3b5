// What a network installation does before and after its second transfer, from the headers that the first one
// has saved in `header_path`. Results: 1, or 0 after an error.
#pragma once

#include <cstdint>

/// Erases and formats what the image will replace, and makes the bank schema suit it.
int image_prepare_system(const char* header_path, int bank, uint32_t mask);

/// Completes what needs a last step.
int image_finalize_system(const char* header_path, int bank, uint32_t mask);
