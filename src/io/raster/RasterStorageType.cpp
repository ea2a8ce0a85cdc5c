#include "io/raster/RasterStorageType.h"

#include <opencv2/core.hpp>

#include "common/IntegerSamples.h"

namespace project_lumen::io {

RasterStorageType RasterStorageTypeOf(int depth) {
  switch (depth) {
    case CV_8U:
      return {"uint8", IntegerWhite(depth)};
    case CV_16U:
      return {"uint16", IntegerWhite(depth)};
    case CV_8S:
      return {"int8", 1.0};
    case CV_16S:
      return {"int16", 1.0};
    case CV_32S:
      return {"int32", 1.0};
    case CV_32F:
      return {"float32", 1.0};
    default:
      return {"float64", 1.0};
  }
}

}  // namespace project_lumen::io
