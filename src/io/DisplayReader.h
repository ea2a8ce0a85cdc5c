// Reading of display formats: TIFF, PNG and the others that OpenCV decodes by itself.
#pragma once

#include <opencv2/core.hpp>
#include <string>

namespace project_lumen::io {

// The image as the file stores it: its depth and channel count, interleaved, colour in BGR order,
// no gamma, colour profile or range applied. The first page of several is read. Palettes and depths
// below 8 bits are expanded. TIFF orientation is applied; that of EXIF data in JPEG and PNG files
// is not.
//
// Empty when the file cannot be decoded: it is none of OpenCV's own formats, cannot be read, is cut
// off, is damaged in a way that the decoder notices, claims more pixels than OpenCV allows or more
// than a file of its size can hold, or is one that OpenCV would decode to other values than it
// stores (16-bit TIFF with separate planes, CIE L*a*b* TIFF).
//
// Throws std::invalid_argument where OpenCV would drop channels or widen samples unasked:
//   "Unsupported number of image channels: N"           TIFF, grey or palette with extra samples
//   "Unsupported image bit depth. Only 8-bit and 16-bit integer inputs are supported."
//                                                       TIFF with 10, 12 or 14 bits a sample,
//                                                       OpenEXR
// and std::bad_alloc. Nothing reaches standard error.
cv::Mat ReadDisplayImage(const std::string& path);

}  // namespace project_lumen::io
