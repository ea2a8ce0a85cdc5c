// Reading an image, whatever its format: the face of this room towards those who want samples.
#pragma once

#include <string>

#include "io/InputReport.h"
#include "io/RowSink.h"
#include "io/SourceImageInfo.h"

namespace project_lumen::io {

enum class ReadMode {
  kDisplay,  // samples in float32, as they are shown
  kLinear,   // samples in float64, FITS samples above 1 held at 1
};

// Filled step by step like its report.
struct ImageDescription {
  SourceImageInfo source;
  InputReport report;
};

// Reads the image at `path` and hands its rows to `rows`: one channel, or three in R, G, B order,
// CV_32F or for linear reading CV_64F; stored sample / K, where the divisor K depends on the
// storage type alone (255, 65535, or that of the FITS storage type). The format is FITS where the
// path ends like it, else a raster format; see ReadFitsImage and RasterReader. Rows count only once
// the function has returned, since some faults show at the end.
//
// Throws std::invalid_argument with the whole message for the user for everything that cannot be
// read, and std::bad_alloc. OpenCV's decoders may write to standard error.
void ReadImage(const std::string& path, ReadMode mode, RowSink& rows,
               ImageDescription& description);

}  // namespace project_lumen::io
