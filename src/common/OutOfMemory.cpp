#include "common/OutOfMemory.h"

#include <opencv2/core.hpp>

namespace project_lumen {

bool MeansLackOfMemory(const std::exception& error) {
  const auto* fromOpenCv = dynamic_cast<const cv::Exception*>(&error);
  return dynamic_cast<const std::bad_alloc*>(&error) != nullptr ||
         (fromOpenCv != nullptr && fromOpenCv->code == cv::Error::StsNoMem);
}

}  // namespace project_lumen
