// The container of an image file, told by its leading bytes.
#pragma once

#include <string>

namespace project_lumen::io {

enum class ImageFormat { kTiff, kPng, kJpeg, kBmp, kUnclassified };

// What the file's first bytes say; kUnclassified for everything else, a file that cannot be
// read included.
ImageFormat IdentifyImageFormat(const std::string& path);

// The same as a name for messages: "TIFF", "PNG", "JPEG", "BMP" or "OpenCV (format unclassified)".
std::string DetectImageFormat(const std::string& path);

// Whether the file begins like one of the unclassified formats whose decoder is OpenCV's own or a
// library for nothing else: WebP, Netpbm, PFM, Radiance HDR, Sun raster. JPEG 2000 is none of them,
// since OpenJPEG allocates what tiles, components and precincts claim. What is left goes to GDAL
// where OpenCV was built with it, and GDAL follows the references in a file to other files and over
// the network.
bool IsPlainFormat(const std::string& path);

}  // namespace project_lumen::io
