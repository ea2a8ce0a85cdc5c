// Reading of FITS images, plain and gzip-compressed, with and without linear treatment: any file
// gives std::invalid_argument or an image whose samples can be worked with.
#include <algorithm>
#include <limits>
#include <opencv2/core.hpp>
#include <stdexcept>
#include <string>

#include "FuzzTarget.h"
#include "io/fits/FitsReader.h"

namespace project_lumen::fuzz {
namespace {

struct FitsImage {
  cv::Mat image;
  io::FitsImageInfo info;
  io::InputReport report;
};

int ExpectedType(const FitsImage& read, bool linear) {
  return CV_MAKETYPE(linear ? CV_64F : CV_32F, read.info.naxis == 2 ? 1 : 3);
}

std::int64_t ClaimedSamples(const io::FitsImageInfo& info) {
  const std::int64_t planes = info.naxis == 2 ? 1 : info.naxes[2];
  return planes * info.naxes[0] * info.naxes[1];
}

void RequireClaimedShape(const FitsImage& read, bool linear) {
  Require(read.image.type() == ExpectedType(read, linear));
  Require(static_cast<std::int64_t>(read.image.total()) * read.image.channels() ==
          ClaimedSamples(read.info));
}

void RequireSamplesInRange(const FitsImage& read, bool linear) {
  constexpr double kLargest = std::numeric_limits<double>::max();
  const bool isBelowOne = linear || read.info.isFloat;
  const bool isPositive = !linear && read.info.isFloat;
  // The upper bound of checkRange is exclusive, and it takes -0.0 for less than 0.0.
  const double beyondOne = std::nextafter(1.0, 2.0);
  Require(cv::checkRange(read.image, true, nullptr, isPositive ? -0.0 : -kLargest,
                         isBelowOne ? beyondOne : kLargest));
}

void ReadAnything(const std::string& path, bool linear) {
  try {
    FitsImage read;
    read.image = io::ReadFitsImage(path, linear, read.info, read.report);
    RequireClaimedShape(read, linear);
    RequireSamplesInRange(read, linear);
  } catch (const std::invalid_argument& error) {
    Require(std::string(error.what()).find("FITS") != std::string::npos);
  }
}

}  // namespace
}  // namespace project_lumen::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const project_lumen::fuzz::MemoryFile file({data, size});
  project_lumen::fuzz::ReadAnything(file.Path(), false);
  project_lumen::fuzz::ReadAnything(file.Path(), true);
  return 0;
}
