#include "cli/FailureText.h"

#include <new>
#include <opencv2/core.hpp>

namespace project_lumen::cli {
namespace {

bool MeansLackOfMemory(const std::exception& error) {
  const auto* fromOpenCv = dynamic_cast<const cv::Exception*>(&error);
  return dynamic_cast<const std::bad_alloc*>(&error) != nullptr ||
         (fromOpenCv != nullptr && fromOpenCv->code == cv::Error::StsNoMem);
}

}  // namespace

std::string FailureText(const std::exception& error) {
  return MeansLackOfMemory(error) ? "Not enough memory to process the image." : error.what();
}

}  // namespace project_lumen::cli
