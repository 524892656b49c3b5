// An image described in a file: TOML, one table [[part]] for each part. docs/image-format.md shows it.
#pragma once

#include <string>
#include <vector>

#include "kesto/part.h"

/// The most parts that a description holds, and that kesto takes an image apart for.
constexpr size_t description_most_parts = 1000;

/// Adds the parts that the file describes to `*parts`. What it says nothing of is taken from `defaults`; file
/// names are relative to the place of the description. Result: false after an error that names the file and
/// the line; `*parts` is then as it was.
bool description_read(const char* path, const part_traits& defaults, std::vector<part_order>* parts);

/// Result: the text of a description of these parts, from which description_read() makes them again. Paths
/// must be plain names.
std::string description_text(const std::vector<part_order>& parts);
