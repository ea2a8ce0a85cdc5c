// OpenCV's decoders, kept from what a hostile or vanishing file could make them do.
#pragma once

#include <iosfwd>
#include <opencv2/core/mat.hpp>
#include <string>

#include "io/raster/ImageFormat.h"

namespace project_lumen::io {

// The image as it is stored (cv::IMREAD_UNCHANGED), or an empty one when there is none that can be
// decoded. It is decoded from memory, where nothing can happen to the file any more; a PNG, BMP,
// Netpbm or Sun raster file of more than 2 GiB, which is more than OpenCV takes from there, is
// decoded from its path. A claim of far more samples than a file of this size holds counts as none.
//
// `file` is open for binary reading. What the decoders print goes to standard error. Throws
// std::bad_alloc.
cv::Mat DecodeImage(ImageFormat format, std::istream& file, const std::string& path);

}  // namespace project_lumen::io
