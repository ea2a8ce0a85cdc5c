// The container of an image file, told by its leading bytes.
#pragma once

#include <iosfwd>
#include <string>

namespace project_lumen::io {

enum class ImageFormat {
  kTiff,
  kPng,
  kJpeg,
  kBmp,
  kWebp,
  kNetpbm,
  kSunRaster,
  kFloatingPoint,  // OpenEXR, Radiance HDR and PFM, which never hold integers of 8 or 16 bits
  kUnclassified,
};

// What the first bytes of a binary stream say; kUnclassified for everything else, a stream that
// cannot be read included. JPEG 2000 is one of these, since OpenJPEG allocates what tiles,
// components and precincts claim. OpenCV would give others to GDAL where it was built with it, and
// GDAL follows the references in a file to other files and over the network.
ImageFormat IdentifyImageFormat(std::istream& file);

// The name for messages: "TIFF", "PNG", "JPEG", "BMP" or "OpenCV (format unclassified)".
std::string NameOf(ImageFormat format);

// The name of the format of the file at this path.
std::string DetectImageFormat(const std::string& path);

}  // namespace project_lumen::io
