// What machines read about an image. docs/kesto-json.md lists the keys, which stay as they are.
#pragma once

#include <nlohmann/json.hpp>

#include "kesto/image_file.h"

/// Result: what the header of a part says.
nlohmann::ordered_json image_part_json(const image_part& part);

/// Result: a fault, or null when its text is empty.
nlohmann::ordered_json image_fault_json(const image_fault& fault);

/// Prints the report on an image, {"format":1,"image":...,"parts":[...],"ok":...,"fault":...}, on one line.
/// `visit` judges each part as for visit_parts(); those whose header is valid are listed. Result: true when
/// all are good. When the file could not be read the line breaks off in the middle, after an error.
bool image_json_report(image_file& image, const image_file::visitor& visit);

/// Result: one line of JSON without its newline. Bytes that are no UTF-8, as in a file name, are replaced.
std::string json_line(const nlohmann::ordered_json& value);
