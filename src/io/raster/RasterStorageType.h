// What the stored depth of a raster format means.
#pragma once

namespace project_lumen::io {

struct RasterStorageType {
  const char* name;  // "uint8", "uint16", "int8", "int16", "int32", "float32" or "float64"
  double divisor;    // K, the white of the type: 255 or 65535; 1 for types that are refused
};

// `depth` is an OpenCV depth, CV_8U to CV_64F.
RasterStorageType RasterStorageTypeOf(int depth);

}  // namespace project_lumen::io
