// OpenCV's decoders, kept from what a hostile or vanishing file could make them do.
#pragma once

#include <opencv2/core.hpp>
#include <string>

#include "io/WholeFile.h"

namespace project_lumen::io {

// The picture as it is stored (cv::IMREAD_UNCHANGED), or an empty one when there is none that can
// be decoded. A claim of far more samples than files of this size hold counts as none. What the
// decoders print is not seen. Throws std::bad_alloc.

// From memory, where nothing can happen to the file any more: libtiff maps files, and a page that
// the disk does not give ends the process by a signal. Files too large for OpenCV's memory decoder
// are decoded in place.
cv::Mat DecodeImage(const std::string& path);

// The same by a path of its own, for what OpenCV decodes from paths only: TIFF tiles of 8 bits. The
// file in place where the system has no files in memory.
cv::Mat DecodeImageByPath(const std::string& path);

// The file in place.
cv::Mat DecodeImageFile(const std::string& path);

// What was read of a file of at most kLargestInMemory bytes.
cv::Mat DecodeImageBytes(const WholeFile& file);

// OpenCV counts the bytes of an image in memory with an int.
inline constexpr std::size_t kLargestInMemory = 0x7FFFFFFF;

}  // namespace project_lumen::io
