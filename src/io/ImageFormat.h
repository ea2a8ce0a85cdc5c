// The container of an image file, as named in messages.
#pragma once

#include <string>

namespace project_lumen::io {

// "TIFF", "PNG", "JPEG" or "BMP" by the file's first eight bytes; "OpenCV (format unclassified)"
// for everything else, a file that cannot be read included. For messages only: the reader is chosen
// otherwise.
std::string DetectImageFormat(const std::string& path);

}  // namespace project_lumen::io
