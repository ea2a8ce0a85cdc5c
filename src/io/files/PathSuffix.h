// Decisions that the program takes from the end of a path. All letters compare in lower case
// (ASCII); paths are UTF-8.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace project_lumen::io {

// `text` with ASCII capitals in lower case; every other byte is kept.
std::string ToLower(std::string_view text);

// The last `length` characters of the path, in lower case. Throws std::out_of_range "invalid string
// position" for a shorter path.
std::string LowercaseSuffix(const std::string& path, std::size_t length);

// .fit, .fits, .fts, .fit.gz, .fits.gz or .fts.gz
bool IsFitsPath(const std::string& path);

// .jpg, .jpeg or .jpe: formats whose compression changes samples
bool IsLossyPath(const std::string& path);

// .tif or .tiff
bool IsTiffPath(const std::string& path);

}  // namespace project_lumen::io
