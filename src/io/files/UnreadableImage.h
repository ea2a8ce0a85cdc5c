// The one text for an image that cannot be read.
#pragma once

#include <string>

namespace project_lumen::io {

// Throws std::invalid_argument "Unable to read input image: PATH. Check that the file is a readable
// TIFF/TIF, PNG, or supported FITS image.", and behind a blank `advice`, unless that is empty: what
// the file holds and what to do about it, in whole sentences.
[[noreturn]] void FailToRead(const std::string& path, const std::string& advice = "");

}  // namespace project_lumen::io
