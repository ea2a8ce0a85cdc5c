// Writing of display formats: TIFF, PNG and whatever else OpenCV encodes.
#pragma once

#include <opencv2/core.hpp>
#include <string>

namespace project_lumen::io {

// The OpenCV depth of an output at this path. Lossless formats (.tif, .tiff, .png) keep a source's
// CV_8U or CV_16U and have CV_16U for every other `storedDepth` (-1 for FITS sources); other
// extensions have CV_8U. Throws std::out_of_range "invalid string position" for a path shorter than
// the suffix being looked at.
int OutputSampleDepth(const std::string& path, int storedDepth);

// Finds out early whether an output can be written to this path: throws what OutputSampleDepth and
// WriteDisplayImage throw for the path itself, its extension, its folder and what lies there now.
// Leaves nothing behind.
void CheckDisplayTarget(const std::string& path);

// Writes an image of 8- or 16-bit unsigned samples, one channel or three in BGR order, in the
// format of the path's extension: TIFF with LZW compression, others as OpenCV does it by default. A
// TIFF file gets `astroTiffHeader`, unless that is empty, adapted to the image's depth as its
// ImageDescription; other formats carry none.
//
// The file is complete or not there: a file that it replaces stays until the new one is written,
// checked and flushed. Throws std::invalid_argument:
//   "Unable to write output image: PATH"                the image cannot be encoded
//   "Unable to write output image: PATH (REASON)"       the file cannot be written or replaced
//   "AstroTIFF metadata preservation requires an 8-bit or 16-bit TIFF output."
//   what BuildAstroTiffOutputHeader and AppendAstroTiffMetadata throw
// OpenCV's own exception for an extension that it has no encoder for, and std::bad_alloc. Nothing
// reaches standard error.
void WriteDisplayImage(const std::string& path, const cv::Mat& image,
                       const std::string& astroTiffHeader = "");

}  // namespace project_lumen::io
