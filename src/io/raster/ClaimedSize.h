// What the headers of image files claim, before a decoder believes them.
#pragma once

#include <cstdint>
#include <span>

#include "io/raster/ImageFormat.h"

namespace project_lumen::io {

// Whether a file of one of OpenCV's own formats can hold an image of the size that its header
// claims: at least a pixel, no more than IsReadableSize allows, and no more bytes than
// LargestDecodedSize expects in it, or than its Deflate stream can give (PNG). False for other
// formats and for files that have no such header.
bool CanHoldItsClaim(ImageFormat format, std::span<const std::uint8_t> file);

}  // namespace project_lumen::io
