// The container of an image file, told by its leading bytes.
#pragma once

#include <string>

namespace project_lumen::io {

enum class ImageFormat { kTiff, kPng, kJpeg, kBmp, kUnclassified };

// What the file's first eight bytes say; kUnclassified for everything else, a file that cannot be
// read included.
ImageFormat IdentifyImageFormat(const std::string& path);

// The same as a name for messages: "TIFF", "PNG", "JPEG", "BMP" or "OpenCV (format unclassified)".
std::string DetectImageFormat(const std::string& path);

}  // namespace project_lumen::io
