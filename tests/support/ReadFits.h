// Reads a FITS image with all that its reader finds out.
#pragma once

#include <opencv2/core/mat.hpp>
#include <string>

#include "io/fits/FitsReader.h"

namespace project_lumen::test {

struct FitsImage {
  cv::Mat image;
  io::FitsImageInfo info;
  io::InputReport report;
};

inline FitsImage ReadFits(const std::string& path, bool linear) {
  FitsImage result;
  result.image = io::ReadFitsImage(path, linear, result.info, result.report);
  return result;
}

}  // namespace project_lumen::test
